// What makes the daemon's ticks short, so that its end meets requests often, and what tells which
// request was answered how often. Linked around the daemon's own objects with --wrap.
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "vela/vela.h"

// The linker wants them visible: libvela calls functions of these names too.
#pragma GCC visibility push(default)
extern "C" {

GSource* __real_g_timeout_source_new(guint intervalMs);
bool __real_VSMessageReply(VSHandle* handle, VSMessage* message, const char* payload,
                           VSError* error);

GSource* __wrap_g_timeout_source_new(guint intervalMs) {
  const char* tickMs = getenv("TEST_TICK_MS");
  return __real_g_timeout_source_new(
      intervalMs == 5000 && tickMs != nullptr ? static_cast<guint>(atoi(tickMs)) : intervalMs);
}

bool __wrap_VSMessageReply(VSHandle* handle, VSMessage* message, const char* payload,
                           VSError* error) {
  const char* path = getenv("TEST_REPLY_LOG");
  if (path != nullptr) {
    const std::string line = std::to_string(getpid()) + " " + VSMessageGetPayload(message) + "\n";
    const int log = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (write(log, line.data(), line.size()) != static_cast<ssize_t>(line.size())) abort();
    close(log);
  }
  return __real_VSMessageReply(handle, message, payload, error);
}
}
#pragma GCC visibility pop
