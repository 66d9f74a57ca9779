#include "tests/movie/failing_calls.h"

#include <sys/types.h>

#include <cerrno>

FailingCalls gFailingCalls;
pthread_t gLastThread;

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
ssize_t __real_read(int descriptor, void* bytes, size_t size);
pid_t __real_waitpid(pid_t child, int* status, int options);

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
    const int result = __real_pthread_create(thread, attributes, function, data);
    gLastThread = *thread;
    return result;
  }
  return EAGAIN;
}

ssize_t __wrap_read(int descriptor, void* bytes, size_t size) {
  if (!failsNow(&gFailingCalls.read)) return __real_read(descriptor, bytes, size);
  errno = EINTR;
  return -1;
}

pid_t __wrap_waitpid(pid_t child, int* status, int options) {
  if (!failsNow(&gFailingCalls.waitpid)) return __real_waitpid(child, status, options);
  errno = EINTR;
  return -1;
}
}
// NOLINTEND(readability-identifier-naming)
