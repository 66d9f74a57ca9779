// A service that does nothing: answers each call with the text it came with, the plain way of
// GDBus.
//
//     echo_gdbus NAME
#include <gio/gio.h>

#include <cstdio>

namespace {

constexpr char kInterface[] =
    "<node><interface name='com.tarn.Echo'><method name='echo'>"
    "<arg direction='in' type='s'/><arg direction='out' type='s'/></method></interface></node>";

void answer(GDBusConnection*, const char*, const char*, const char*, const char*,
            GVariant* arguments, GDBusMethodInvocation* call, gpointer) {
  const char* text = nullptr;
  g_variant_get(arguments, "(&s)", &text);
  g_dbus_method_invocation_return_value(call, g_variant_new("(s)", text));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  GError* error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kInterface, nullptr);
  const GDBusInterfaceVTable table = {answer, nullptr, nullptr, {}};
  if (bus == nullptr || g_dbus_connection_register_object(bus, "/", node->interfaces[0], &table,
                                                          nullptr, nullptr, &error) == 0) {
    fprintf(stderr, "echo_gdbus: %s\n", error->message);
    return 1;
  }
  g_bus_own_name_on_connection(bus, argv[1], G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr,
                               nullptr);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
