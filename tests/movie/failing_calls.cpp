#include "tests/movie/failing_calls.h"

#include <pthread.h>
#include <sys/types.h>

#include <cerrno>

FailingCalls gFailingCalls;

namespace {

bool failsNow(int* countdown) {
  return *countdown > 0 && --*countdown == 0;
}

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {

int __real_pipe(int* ends);
pid_t __real_fork();
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* data);

int __wrap_pipe(int* ends) {
  if (!failsNow(&gFailingCalls.pipe)) return __real_pipe(ends);
  errno = EMFILE;
  return -1;
}

pid_t __wrap_fork() {
  if (!failsNow(&gFailingCalls.fork)) return __real_fork();
  errno = EAGAIN;
  return -1;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* data) {
  if (!failsNow(&gFailingCalls.pthreadCreate)) {
    return __real_pthread_create(thread, attributes, function, data);
  }
  return EAGAIN;
}
}
// NOLINTEND(readability-identifier-naming)
