#include "platform/vela/bus_link.h"

#include <unistd.h>

#include "platform/vela/error_record.h"

namespace vela {

namespace {

constexpr char kNoServer[] = "org.freedesktop.DBus.Error.NoServer";
constexpr char kNameTaken[] = "org.freedesktop.DBus.Error.AddressInUse";

// The bus's own numbers.
constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kPrimaryOwner = 1;

}  // namespace

std::shared_ptr<BusLink> BusLink::open(bool publicBus, VSError* error) {
  g_autoptr(GError) cause = nullptr;
  const GBusType type = publicBus ? G_BUS_TYPE_SYSTEM : G_BUS_TYPE_SESSION;
  g_autofree char* address = g_dbus_address_get_for_bus_sync(type, nullptr, &cause);
  if (address == nullptr) {
    fail(error, cause, kNoServer);
    return nullptr;
  }
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  GDBusConnection* connection =
      g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, &cause);
  if (connection == nullptr) {
    fail(error, cause, kNoServer);
    return nullptr;
  }
  // GDBus would end the process by SIGTERM; the handle does it itself, from the loop.
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  return std::shared_ptr<BusLink>(new BusLink(connection));
}

BusLink::BusLink(GDBusConnection* connection) : bus(connection), owner(getpid()) {}

BusLink::~BusLink() {
  close();
}

bool BusLink::usable(VSError* error) const {
  if (getpid() != owner) {
    return fail(error, kDisconnected, "the connection belongs to the parent process");
  }
  return true;
}

bool BusLink::callBus(const char* method, GVariant* arguments, guint32* result, VSError* error) {
  g_autoptr(GVariant) held = g_variant_ref_sink(arguments);
  if (!usable(error)) {
    return false;
  }
  g_autoptr(GError) cause = nullptr;
  g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
      bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
      held, G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &cause);
  if (reply == nullptr) {
    return fail(error, cause, kFailed);
  }
  g_variant_get(reply, "(u)", result);
  return true;
}

bool BusLink::requestName(const std::string& name, VSError* error) {
  guint32 result = 0;
  if (!callBus("RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue), &result, error)) {
    return false;
  }
  return result == kPrimaryOwner ||
         fail(error, kNameTaken, "the name " + name + " is taken already");
}

bool BusLink::releaseName(const std::string& name, VSError* error) {
  guint32 result = 0;
  return callBus("ReleaseName", g_variant_new("(s)", name.c_str()), &result, error);
}

void BusLink::awaitBus() {
  guint32 user = 0;
  const char* self = g_dbus_connection_get_unique_name(bus.get());
  callBus("GetConnectionUnixUser", g_variant_new("(s)", self), &user, nullptr);
}

bool BusLink::send(GDBusMessage* message, guint32* serial, VSError* error) {
  if (!usable(error)) {
    return false;
  }
  g_autoptr(GError) cause = nullptr;
  return g_dbus_connection_send_message(bus.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, serial,
                                        &cause) ||
         fail(error, cause, kFailed);
}

bool BusLink::sendAndFlush(GDBusMessage* message, VSError* error) {
  return send(message, nullptr, error) && flush(error);
}

bool BusLink::flush(VSError* error) {
  if (!usable(error)) {
    return false;
  }
  g_autoptr(GError) cause = nullptr;
  return g_dbus_connection_flush_sync(bus.get(), nullptr, &cause) ||
         fail(error, cause, kDisconnected);
}

void BusLink::close() {
  if (getpid() != owner) {
    return;
  }
  if (!isClosed()) {
    g_dbus_connection_flush_sync(bus.get(), nullptr, nullptr);
    g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
  }
}

bool BusLink::isClosed() const {
  return g_dbus_connection_is_closed(bus.get());
}

}  // namespace vela
