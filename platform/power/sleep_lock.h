// Keeps the device from going to sleep: one of logind's inhibitor locks.
#ifndef PLATFORM_POWER_SLEEP_LOCK_H
#define PLATFORM_POWER_SLEEP_LOCK_H

#include <gio/gio.h>

#include <string>

// Asks logind for the lock, without waiting, and holds it from the answer until it is destroyed.
// `who` and `why` are what `systemd-inhibit --list` shows the user.
//
// Thread: the one whose default context the main loop runs.
// Errors: without logind, or when it refuses, nothing is held; the first such lock of the process
// logs a warning.
class SleepLock {
 public:
  SleepLock(std::string who, std::string why);
  ~SleepLock();
  SleepLock(const SleepLock&) = delete;
  SleepLock& operator=(const SleepLock&) = delete;

 private:
  static void onBus(GObject* source, GAsyncResult* result, gpointer self);
  static void onAnswer(GObject* source, GAsyncResult* result, gpointer self);
  void ask(GDBusConnection* systemBus);

  const std::string who;
  const std::string why;
  GCancellable* asking;  // owned; cancelled when the lock goes, so that no callback sees it gone
  int lock = -1;         // logind's descriptor: closing it gives the lock back
};

#endif
