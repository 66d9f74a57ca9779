#include "platform/vela/exit_registry.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <vector>

#include "platform/vela/handle.h"
#include "platform/vela/mutex.h"

namespace vela {

namespace {

struct Registry {
  Mutex mutex;
  std::vector<std::weak_ptr<VSHandle>> handles VELA_GUARDED_BY(mutex);
};

// Never destroyed: static destructors run among the atexit functions.
Registry& registry() {
  static auto* const only = new Registry;
  return *only;
}

// The process whose handles are listed; 0 before the first.
std::atomic<pid_t> gOwner{0};

std::vector<std::shared_ptr<VSHandle>> openHandles() {
  Registry& all = registry();
  const MutexLock lock(all.mutex);
  std::vector<std::shared_ptr<VSHandle>> open;
  for (const std::weak_ptr<VSHandle>& handle : all.handles) {
    if (auto still = handle.lock()) open.push_back(std::move(still));
  }
  return open;
}

void finishAll() {
  // Before the lock: a thread that did not survive the fork may have held it.
  if (gOwner != getpid()) return;
  const std::vector<std::shared_ptr<VSHandle>> open = openHandles();
  if (open.empty()) return;
  // A request that is still served here may call exit() again and must not take the rest with it.
  atexit(finishAll);
  for (const std::shared_ptr<VSHandle>& handle : open) {
    handle->finishAtExit();
  }
}

}  // namespace

void finishAtExit(const std::shared_ptr<VSHandle>& handle) {
  static const int registered = atexit(finishAll);
  (void)registered;
  Registry& all = registry();
  const MutexLock lock(all.mutex);
  if (gOwner.exchange(getpid()) != getpid()) all.handles.clear();  // the parent's
  all.handles.push_back(handle);
}

void dontFinishAtExit(const VSHandle* handle) {
  Registry& all = registry();
  const MutexLock lock(all.mutex);
  std::erase_if(all.handles, [handle](const std::weak_ptr<VSHandle>& listed) {
    const std::shared_ptr<VSHandle> still = listed.lock();
    return still == nullptr || still.get() == handle;
  });
}

}  // namespace vela
