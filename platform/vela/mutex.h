// std::mutex with annotations: the standard library's own carries none.
#ifndef PLATFORM_VELA_MUTEX_H
#define PLATFORM_VELA_MUTEX_H

#include <mutex>

#include "platform/vela/thread_annotations.h"

namespace vela {

class VELA_CAPABILITY("mutex") Mutex {
 public:
  void lock() VELA_ACQUIRE() { mutex.lock(); }
  void unlock() VELA_RELEASE() { mutex.unlock(); }

 private:
  std::mutex mutex;
};

// Holds the mutex while it lives.
class VELA_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& held) VELA_ACQUIRE(held) : mutex(held) { mutex.lock(); }
  ~MutexLock() VELA_RELEASE() { mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex;
};

}  // namespace vela

#endif
