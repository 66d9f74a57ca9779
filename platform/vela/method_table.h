// The categories of a handle and their methods.
//
// Thread: the loop's.
#ifndef PLATFORM_VELA_METHOD_TABLE_H
#define PLATFORM_VELA_METHOD_TABLE_H

#include <map>
#include <string>
#include <vector>

#include "vela/vela.h"

namespace vela {

class MethodTable {
 public:
  struct Category {
    const VSMethod* methods;  // borrowed
    void* data;
  };
  // Where a call leads: a row and its category's data, or the error that says why nowhere.
  struct Target {
    const VSMethod* method = nullptr;
    void* data = nullptr;
    const char* errorName = nullptr;
    std::string description{};
  };

  // The interface is the service's name.
  explicit MethodTable(std::string serviceName) : service(std::move(serviceName)) {}

  // Fails on a path or method name that D-Bus does not know, and on a category that is there.
  bool add(const char* path, const VSMethod* methods, VSError* error);
  bool setData(const char* path, void* data, VSError* error);

  // A null interface matches by member alone, as D-Bus has it.
  Target find(const std::string& path, const char* interface, const std::string& member) const;

  const std::string& interface() const { return service; }
  // Null when the path is no category.
  const Category* category(const std::string& path) const;
  // The names one level below the path, sorted.
  std::vector<std::string> children(const std::string& path) const;

 private:
  const std::string service;
  std::map<std::string, Category> categories;
};

// Whether the row is one, not the table's end.
inline bool isRow(const VSMethod* row) {
  return row->name != nullptr;
}

}  // namespace vela

#endif
