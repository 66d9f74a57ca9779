// How many requests this process still has to finish: received, and still referenced.
//
// Thread: any.
#ifndef PLATFORM_VELA_OPEN_REQUESTS_H
#define PLATFORM_VELA_OPEN_REQUESTS_H

#include <atomic>

#include "platform/vela/glib_ref.h"

namespace vela {

class OpenRequests {
 public:
  // The context is woken at every end, for the thread that waits there.
  explicit OpenRequests(GMainContext* context) : waiter(g_main_context_ref(context)) {}

  void began() { ++open; }
  void ended() {
    --open;
    g_main_context_wakeup(waiter.get());
  }
  bool none() const { return open == 0; }

 private:
  const GlibRef<GMainContext> waiter;
  std::atomic<int> open{0};
};

}  // namespace vela

#endif
