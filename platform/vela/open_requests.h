// How many requests this process still has to finish (received, and still referenced), and when the
// last one came.
//
// Thread: any.
#ifndef PLATFORM_VELA_OPEN_REQUESTS_H
#define PLATFORM_VELA_OPEN_REQUESTS_H

#include <chrono>
#include <condition_variable>

#include "platform/vela/glib_ref.h"
#include "platform/vela/mutex.h"

namespace vela {

class OpenRequests {
 public:
  using Clock = std::chrono::steady_clock;

  // The context is woken at every end, for the thread that waits there.
  explicit OpenRequests(GMainContext* context) : waiter(g_main_context_ref(context)) {}

  void began() {
    const MutexLock lock(mutex);
    ++open;
    lastBegin = Clock::now();
  }
  void ended() {
    {
      const MutexLock lock(mutex);
      --open;
    }
    change.notify_all();
    g_main_context_wakeup(waiter.get());
  }

  bool none() {
    const MutexLock lock(mutex);
    return open == 0;
  }
  // Counts the silence from now on.
  void startSilence() {
    const MutexLock lock(mutex);
    lastBegin = Clock::now();
  }
  Clock::time_point lastBeginning() {
    const MutexLock lock(mutex);
    return lastBegin;
  }
  // For a thread that does not run the context: returns at the next end, or when the time is over.
  void waitForEnd(std::chrono::milliseconds timeout) {
    const MutexLock lock(mutex);
    change.wait_for(mutex, timeout);
  }

 private:
  const GlibRef<GMainContext> waiter;
  Mutex mutex;
  std::condition_variable_any change;
  int open VELA_GUARDED_BY(mutex) = 0;
  Clock::time_point lastBegin VELA_GUARDED_BY(mutex);
};

}  // namespace vela

#endif
