// Keeps the device from sleeping while jobs run, by an inhibitor of logind's.
//
// Where there is no logind the device is somebody else's to keep awake; one line says so.
#ifndef FIT_SERVICE_KEEP_AWAKE_H
#define FIT_SERVICE_KEEP_AWAKE_H

#include <gio/gio.h>

#include "fit/service/glib_ref.h"

class KeepAwake {
 public:
  KeepAwake() = default;
  ~KeepAwake();
  KeepAwake(const KeepAwake&) = delete;
  KeepAwake& operator=(const KeepAwake&) = delete;

  void setNeeded(bool needed);

 private:
  static void onBus(GObject*, GAsyncResult* result, gpointer self);
  static void onInhibited(GObject* bus, GAsyncResult* result, gpointer self);
  void ask();
  void failed(GError* error);

  ObjectRef<GCancellable> pending;  // while logind is being asked
  ObjectRef<GDBusConnection> bus;
  Descriptor inhibitor;  // holding it open keeps the device awake
  bool isNeeded = false;
  bool isUnavailable = false;
};

#endif
