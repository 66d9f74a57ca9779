#include "platform/vela/pending_calls.h"

namespace vela {

bool PendingCalls::send(BusLink& link, GDBusMessage* call, const Callback& callback,
                        VSError* error) {
  // Held while sending: the reply may come before the serial is known here.
  const MutexLock lock(mutex);
  guint32 serial = 0;
  if (!link.send(call, &serial, error)) {
    return false;
  }
  calls.emplace(serial, callback);
  return true;
}

std::optional<Callback> PendingCalls::take(guint32 serial) {
  const MutexLock lock(mutex);
  const auto found = calls.extract(serial);
  return found.empty() ? std::nullopt : std::optional(found.mapped());
}

std::vector<Callback> PendingCalls::takeAll() {
  const MutexLock lock(mutex);
  std::vector<Callback> all;
  for (const auto& [serial, callback] : calls) {
    all.push_back(callback);
  }
  calls.clear();
  return all;
}

}  // namespace vela
