// What is kept of each message that was sent until its reply is here.
//
// Thread: any.
#ifndef PLATFORM_VELA_PENDING_REPLIES_H
#define PLATFORM_VELA_PENDING_REPLIES_H

#include <gio/gio.h>

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "platform/vela/bus_link.h"
#include "platform/vela/mutex.h"
#include "vela/vela.h"

namespace vela {

template <typename T>
class PendingReplies {
 public:
  // Sends the message and takes what belongs to it; on failure kept stays as it was.
  bool send(BusLink& link, GDBusMessage* message, T& kept, VSError* error) {
    // Held while sending: the reply may come before the serial is known here.
    const MutexLock lock(mutex);
    guint32 serial = 0;
    if (!link.send(message, &serial, error)) return false;
    all.emplace(serial, std::move(kept));
    return true;
  }

  // Gives what was kept of the message that the serial names. Nothing when it is none of ours.
  std::optional<T> take(guint32 serial) {
    const MutexLock lock(mutex);
    auto found = all.extract(serial);
    return found.empty() ? std::nullopt : std::optional<T>(std::move(found.mapped()));
  }

  std::vector<T> takeAll() {
    const MutexLock lock(mutex);
    std::vector<T> taken;
    for (auto& [serial, kept] : all) {
      taken.push_back(std::move(kept));
    }
    all.clear();
    return taken;
  }

 private:
  Mutex mutex;
  std::map<guint32, T> all VELA_GUARDED_BY(mutex);
};

// Where the outcome of a call goes.
struct Callback {
  VSMethodFunction function;
  void* data;
};
// The outgoing calls whose replies are still to come.
using PendingCalls = PendingReplies<Callback>;

}  // namespace vela

#endif
