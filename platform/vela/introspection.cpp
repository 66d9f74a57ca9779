#include "platform/vela/introspection.h"

#include <gio/gio.h>

#include <string>
#include <string_view>

#include "platform/vela/error_record.h"

namespace vela {

namespace {

constexpr std::string_view kIntrospectable = "org.freedesktop.DBus.Introspectable";
constexpr std::string_view kPeer = "org.freedesktop.DBus.Peer";

constexpr char kHead[] =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n"
    "<node>\n"
    "  <interface name=\"org.freedesktop.DBus.Introspectable\">\n"
    "    <method name=\"Introspect\">\n"
    "      <arg name=\"xml\" type=\"s\" direction=\"out\"/>\n"
    "    </method>\n"
    "  </interface>\n"
    "  <interface name=\"org.freedesktop.DBus.Peer\">\n"
    "    <method name=\"Ping\"/>\n"
    "    <method name=\"GetMachineId\">\n"
    "      <arg name=\"machine_uuid\" type=\"s\" direction=\"out\"/>\n"
    "    </method>\n"
    "  </interface>\n";

std::string interfaceXml(const MethodTable& table, const MethodTable::Category& category) {
  std::string xml = "  <interface name=\"" + table.interface() + "\">\n";
  for (const VSMethod* row = category.methods; isRow(row); ++row) {
    xml += std::string("    <method name=\"") + row->name +
           "\">\n"
           "      <arg name=\"payload\" type=\"s\" direction=\"in\"/>\n"
           "      <arg name=\"reply\" type=\"s\" direction=\"out\"/>\n"
           "    </method>\n";
  }
  return xml + "  </interface>\n";
}

void introspect(const MethodTable& table, VSMessage& request) {
  const std::string path = request.path();
  const MethodTable::Category* category = table.category(path);
  const std::vector<std::string> children = table.children(path);
  if (category == nullptr && children.empty() && path != "/") {
    request.answerError(kUnknownObject, "No such category: " + path);
    return;
  }
  std::string xml = kHead;
  if (category != nullptr) {
    xml += interfaceXml(table, *category);
  }
  for (const std::string& child : children) {
    xml += "  <node name=\"" + child + "\"/>\n";
  }
  request.answer((xml + "</node>\n").c_str(), nullptr);
}

void ping(const MethodTable&, VSMessage& request) {
  request.answerEmpty(nullptr);
}

void getMachineId(const MethodTable&, VSMessage& request) {
  for (const char* file : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
    g_autofree char* text = nullptr;
    if (g_file_get_contents(file, &text, nullptr, nullptr) && *g_strstrip(text) != '\0') {
      request.answer(text, nullptr);
      return;
    }
  }
  request.answerError(kFailed, "This machine has no id");
}

struct StandardMethod {
  std::string_view interface;
  std::string_view member;
  void (*answer)(const MethodTable&, VSMessage&);
};

constexpr StandardMethod kMethods[] = {
    {kIntrospectable, "Introspect", introspect},
    {kPeer, "Ping", ping},
    {kPeer, "GetMachineId", getMachineId},
};

}  // namespace

bool answerStandardCall(const MethodTable& table, VSMessage& request) {
  const char* interface = request.interface();
  const std::string_view member = request.member();
  if (interface != nullptr && interface != kIntrospectable && interface != kPeer) {
    return false;
  }
  for (const StandardMethod& method : kMethods) {
    if (member != method.member || (interface != nullptr && interface != method.interface)) {
      continue;
    }
    if (request.hasArguments()) {
      request.answerError(kInvalidArgs, std::string(member) + " takes no arguments");
    } else {
      method.answer(table, request);
    }
    return true;
  }
  if (interface != nullptr) {
    request.answerError(kUnknownMethod, "No such method: " + std::string(member));
  }
  return interface != nullptr;
}

}  // namespace vela
