#include "platform/vela/exit_service.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "platform/vela/handle.h"

namespace vela {

namespace {

struct OpenHandles {
  std::mutex mutex;
  std::vector<VSHandle*> list;
};

// Never destroyed: static destructors run among the atexit functions.
OpenHandles& openHandles() {
  static auto* const handles = new OpenHandles;
  return *handles;
}

// The process whose handles are listed; 0 before the first.
std::atomic<pid_t> gHandleOwner{0};
std::atomic<bool> gExiting{false};

void finishAll() {
  if (gHandleOwner != getpid()) return;
  gExiting = true;
  std::vector<VSHandle*> handles;
  {
    const std::lock_guard lock(openHandles().mutex);
    handles = openHandles().list;
  }
  for (VSHandle* handle : handles)
    handle->finishAtExit();
}

}  // namespace

void finishAtExit(VSHandle* handle) {
  static const int registered = atexit(finishAll);
  (void)registered;
  const std::lock_guard lock(openHandles().mutex);
  if (gHandleOwner.exchange(getpid()) != getpid()) openHandles().list.clear();  // the parent's
  openHandles().list.push_back(handle);
}

void dontFinishAtExit(VSHandle* handle) {
  const std::lock_guard lock(openHandles().mutex);
  std::erase(openHandles().list, handle);
}

void rearmIfExiting() {
  if (gExiting) atexit(finishAll);
}

}  // namespace vela
