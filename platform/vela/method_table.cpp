#include "platform/vela/method_table.h"

#include <gio/gio.h>

#include <set>

#include "platform/vela/error_record.h"

namespace vela {

bool MethodTable::add(const char* path, const VSMethod* methods, VSError* error) {
  if (path == nullptr || !g_variant_is_object_path(path)) {
    return fail(error, kInvalidArgs, "a category is a path such as / or /com/example");
  }
  if (service.empty()) {
    return fail(error, kInvalidArgs, "a client handle has no service name to publish under");
  }
  if (methods == nullptr) {
    return fail(error, kInvalidArgs, "no method table");
  }
  for (const VSMethod* row = methods; isRow(row); ++row) {
    if (!g_dbus_is_member_name(row->name) || row->function == nullptr) {
      return fail(error, kInvalidArgs, std::string("no usable method: ") + row->name);
    }
  }
  if (!categories.emplace(path, Category{methods, nullptr}).second) {
    return fail(error, "org.freedesktop.DBus.Error.ObjectPathInUse",
                std::string("the category is registered already: ") + path);
  }
  return true;
}

bool MethodTable::setData(const char* path, void* data, VSError* error) {
  const auto found = categories.find(path != nullptr ? path : "");
  if (found == categories.end()) {
    return fail(error, kUnknownObject, "no such category");
  }
  found->second.data = data;
  return true;
}

MethodTable::Target MethodTable::find(const std::string& path, const char* interface,
                                      const std::string& member) const {
  const Category* found = category(path);
  if (found == nullptr) {
    return {.errorName = kUnknownObject, .description = "No such category: " + path};
  }
  if (interface != nullptr && service != interface) {
    return {.errorName = kUnknownInterface,
            .description = std::string("No such interface: ") + interface};
  }
  for (const VSMethod* row = found->methods; isRow(row); ++row) {
    if (member == row->name) {
      return {.method = row, .data = found->data};
    }
  }
  return {.errorName = kUnknownMethod, .description = "No such method: " + member};
}

const MethodTable::Category* MethodTable::category(const std::string& path) const {
  const auto found = categories.find(path);
  return found != categories.end() ? &found->second : nullptr;
}

std::vector<std::string> MethodTable::children(const std::string& path) const {
  const std::string prefix = path == "/" ? path : path + "/";
  std::set<std::string> names;
  for (const auto& [other, ignored] : categories) {
    if (other.size() > prefix.size() && other.starts_with(prefix)) {
      names.insert(other.substr(prefix.size(), other.find('/', prefix.size()) - prefix.size()));
    }
  }
  return {names.begin(), names.end()};
}

}  // namespace vela
