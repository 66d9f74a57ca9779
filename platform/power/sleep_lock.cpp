#include "platform/power/sleep_lock.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <utility>

namespace {

void warnOnce(const GError* error) {
  static bool warned = false;
  if (!std::exchange(warned, true)) g_warning("nothing keeps the device awake: %s", error->message);
}

// Whether the lock that asked is there no more.
bool isCancelled(const GError* error) {
  return g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
}

}  // namespace

SleepLock::SleepLock(std::string program, std::string reason)
    : who(std::move(program)), why(std::move(reason)), asking(g_cancellable_new()) {
  g_bus_get(G_BUS_TYPE_SYSTEM, asking, onBus, this);
}

SleepLock::~SleepLock() {
  g_cancellable_cancel(asking);
  g_object_unref(asking);
  if (lock >= 0) close(lock);
}

void SleepLock::onBus(GObject*, GAsyncResult* result, gpointer self) {
  g_autoptr(GError) error = nullptr;
  g_autoptr(GDBusConnection) systemBus = g_bus_get_finish(result, &error);
  if (systemBus != nullptr) {
    static_cast<SleepLock*>(self)->ask(systemBus);
  } else if (!isCancelled(error)) {
    warnOnce(error);
  }
}

void SleepLock::ask(GDBusConnection* systemBus) {
  g_dbus_connection_set_exit_on_close(systemBus, FALSE);
  g_dbus_connection_call_with_unix_fd_list(
      systemBus, "org.freedesktop.login1", "/org/freedesktop/login1",
      "org.freedesktop.login1.Manager", "Inhibit",
      g_variant_new("(ssss)", "sleep", who.c_str(), why.c_str(), "block"), G_VARIANT_TYPE("(h)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, asking, onAnswer, this);
}

void SleepLock::onAnswer(GObject* source, GAsyncResult* result, gpointer self) {
  g_autoptr(GError) error = nullptr;
  g_autoptr(GUnixFDList) descriptors = nullptr;
  g_autoptr(GVariant) reply = g_dbus_connection_call_with_unix_fd_list_finish(
      G_DBUS_CONNECTION(source), &descriptors, result, &error);
  if (reply != nullptr) {
    gint32 index = -1;
    g_variant_get(reply, "(h)", &index);
    static_cast<SleepLock*>(self)->lock = g_unix_fd_list_get(descriptors, index, &error);
  }
  if (error != nullptr && !isCancelled(error)) warnOnce(error);
}
