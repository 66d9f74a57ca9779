// The outgoing calls whose replies are still to come.
//
// Thread: any.
#ifndef PLATFORM_VELA_PENDING_CALLS_H
#define PLATFORM_VELA_PENDING_CALLS_H

#include <gio/gio.h>

#include <map>
#include <optional>
#include <vector>

#include "platform/vela/bus_link.h"
#include "platform/vela/mutex.h"
#include "vela/vela.h"

namespace vela {

// Where the outcome of a call goes.
struct Callback {
  VSMethodFunction function;
  void* data;
};

class PendingCalls {
 public:
  // Sends the call and remembers its callback; on failure nothing is remembered.
  bool send(BusLink& link, GDBusMessage* call, const Callback& callback, VSError* error);
  // Forgets the call that the serial names. Nothing when it is none of ours.
  std::optional<Callback> take(guint32 serial);
  // Forgets all of them.
  std::vector<Callback> takeAll();

 private:
  Mutex mutex;
  std::map<guint32, Callback> calls VELA_GUARDED_BY(mutex);
};

}  // namespace vela

#endif
