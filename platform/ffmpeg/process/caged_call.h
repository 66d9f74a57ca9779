// One call in a process of its own: what reads a foreign file can do no more than answer.
#ifndef PLATFORM_FFMPEG_PROCESS_CAGED_CALL_H
#define PLATFORM_FFMPEG_PROCESS_CAGED_CALL_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

struct CagedLimits {
  std::chrono::milliseconds time;  // of the clock on the wall; the process is killed at its end
  int64_t memoryBytes;
};

// Runs `call` in a child that has `inputFd` open for it and may do nothing but read it, and stores
// the text that it returned, of 1 MiB at most, in *answer. False when no whole text came in time;
// *error then says why in one line. The child is always gone on return, and it ends with us.
// Not for a process with several threads.
bool callCaged(int inputFd, const CagedLimits& limits, const std::function<std::string(int)>& call,
               std::string* answer, std::string* error);

#endif
