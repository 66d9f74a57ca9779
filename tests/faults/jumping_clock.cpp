// Preloaded into programs: the wall clock jumps three days on and three days back, ten times a
// second each. The monotonic clock goes on as ever. Compiled with the machine's own size of times,
// which is what libraries call; programs of ours may ask for another.
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace {

time_t jump() {
  timespec steady{};
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &steady);
  constexpr time_t kThreeDays = time_t{3} * 24 * 3600;
  return steady.tv_nsec / 50'000'000 % 2 == 0 ? kThreeDays : -kThreeDays;
}

bool isWallClock(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

#if __TIMESIZE == 32
// What clock_gettime gives to programs that ask for 64-bit times.
struct WideTime {
  int64_t seconds;
  int32_t nanoseconds;
  int32_t unused;
};
#endif

}  // namespace

#define EXPORTED __attribute__((visibility("default")))

extern "C" {

EXPORTED int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  if (result == 0 && isWallClock(clock)) now->tv_sec += jump();
  return result;
}

#if __TIMESIZE == 32
EXPORTED int __clock_gettime64(clockid_t clock, WideTime* now) noexcept {  // NOLINT
  const auto result = static_cast<int>(syscall(SYS_clock_gettime64, clock, now));
  if (result == 0 && isWallClock(clock)) now->seconds += jump();
  return result;
}
#endif

EXPORTED int gettimeofday(timeval* now, void*) noexcept {
  timespec fine{};
  clock_gettime(CLOCK_REALTIME, &fine);
  *now = {fine.tv_sec, fine.tv_nsec / 1000};
  return 0;
}

EXPORTED time_t time(time_t* now) noexcept {
  timespec fine{};
  clock_gettime(CLOCK_REALTIME, &fine);
  if (now != nullptr) *now = fine.tv_sec;
  return fine.tv_sec;
}
}
