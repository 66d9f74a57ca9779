#include "platform/vela/exit_flush.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace vela {

namespace {

struct OpenConnections {
  std::mutex mutex;
  std::vector<GDBusConnection*> list;
};

// Never destroyed: static destructors run among the atexit functions.
OpenConnections& openConnections() {
  static auto* const connections = new OpenConnections;
  return *connections;
}

// The process whose connections are listed; 0 before the first.
std::atomic<pid_t> gOwner{0};

void flushAll() {
  if (gOwner != getpid()) {
    return;  // before the lock: a thread that did not survive the fork may have held it
  }
  OpenConnections& open = openConnections();
  const std::lock_guard lock(open.mutex);
  for (GDBusConnection* connection : open.list) {
    g_dbus_connection_flush_sync(connection, nullptr, nullptr);
  }
}

}  // namespace

void flushAtExit(GDBusConnection* connection) {
  static const int registered = atexit(flushAll);
  (void)registered;
  OpenConnections& open = openConnections();
  const std::lock_guard lock(open.mutex);
  if (gOwner.exchange(getpid()) != getpid()) {
    open.list.clear();  // the parent's
  }
  open.list.push_back(connection);
}

void dontFlushAtExit(GDBusConnection* connection) {
  OpenConnections& open = openConnections();
  const std::lock_guard lock(open.mutex);
  std::erase(open.list, connection);
}

}  // namespace vela
