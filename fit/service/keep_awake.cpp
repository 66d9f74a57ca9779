#include "fit/service/keep_awake.h"

#include <gio/gunixfdlist.h>

namespace {

constexpr char kLogind[] = "org.freedesktop.login1";
constexpr int kTimeoutMs = 5000;

}  // namespace

KeepAwake::~KeepAwake() {
  if (pending) g_cancellable_cancel(pending.get());
}

void KeepAwake::setNeeded(bool needed) {
  isNeeded = needed;
  if (!needed) {
    inhibitor = Descriptor();
  } else if (!inhibitor.isOpen() && !pending && !isUnavailable) {
    pending.reset(g_cancellable_new());
    if (bus) {
      ask();
    } else {
      g_bus_get(G_BUS_TYPE_SYSTEM, pending.get(), onBus, this);
    }
  }
}

void KeepAwake::failed(GError* error) {
  const ErrorRef owned(error);
  g_info("the device may fall asleep meanwhile: %s", error->message);
  isUnavailable = true;
  pending.reset();
}

void KeepAwake::onBus(GObject*, GAsyncResult* result, gpointer data) {
  GError* error = nullptr;
  ObjectRef<GDBusConnection> bus(g_bus_get_finish(result, &error));
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE) {
    g_error_free(error);  // we are gone
    return;
  }
  auto* self = static_cast<KeepAwake*>(data);
  if (error != nullptr) {
    self->failed(error);
    return;
  }
  self->bus = std::move(bus);
  self->ask();
}

void KeepAwake::ask() {
  g_dbus_connection_call_with_unix_fd_list(
      bus.get(), kLogind, "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Inhibit",
      g_variant_new("(ssss)", "sleep", "tarn-fit", "A photo is being made to fit", "block"),
      G_VARIANT_TYPE("(h)"), G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr, pending.get(),
      onInhibited, this);
}

void KeepAwake::onInhibited(GObject* source, GAsyncResult* result, gpointer data) {
  GError* error = nullptr;
  GUnixFDList* list = nullptr;
  GVariant* reply = g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(source),
                                                                    &list, result, &error);
  const ObjectRef<GUnixFDList> ownedList(list);
  if (reply != nullptr) g_variant_unref(reply);
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE) {
    g_error_free(error);
    return;
  }
  auto* self = static_cast<KeepAwake*>(data);
  if (error != nullptr) {
    self->failed(error);
    return;
  }
  self->pending.reset();
  const int fd = list != nullptr ? g_unix_fd_list_get(list, 0, nullptr) : -1;
  if (self->isNeeded) {
    self->inhibitor = Descriptor(fd);
  } else {
    const Descriptor unneeded(fd);
  }
}
