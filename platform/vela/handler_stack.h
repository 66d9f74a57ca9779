// The requests whose handlers are on the loop's stack, outermost first.
//
// Thread: push() and pop() are the loop's; exit() may call for the rest from any thread.
#ifndef PLATFORM_VELA_HANDLER_STACK_H
#define PLATFORM_VELA_HANDLER_STACK_H

#include <algorithm>
#include <vector>

#include "platform/vela/message.h"
#include "platform/vela/mutex.h"

namespace vela {

class HandlerStack {
 public:
  // Borrows the request until pop().
  void push(VSMessage* request) {
    const MutexLock lock(mutex);
    requests.push_back(request);
  }
  void pop() {
    const MutexLock lock(mutex);
    requests.pop_back();
    base = std::min(base, requests.size());
  }
  // How many there are, without those that were cut off.
  size_t depth() {
    const MutexLock lock(mutex);
    return requests.size() - base;
  }
  // Gives a reference to each, and counts them no more.
  std::vector<MessageRef> cutOff() {
    const MutexLock lock(mutex);
    std::vector<MessageRef> cut;
    for (; base < requests.size(); ++base) {
      requests[base]->ref();
      cut.emplace_back(requests[base]);
    }
    return cut;
  }

 private:
  Mutex mutex;
  std::vector<VSMessage*> requests VELA_GUARDED_BY(mutex);
  size_t base VELA_GUARDED_BY(mutex) = 0;
};

}  // namespace vela

#endif
