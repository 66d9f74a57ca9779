// One run of the system's ffmpeg: started in a sandbox, watched, and its end told in plain words.
#ifndef PLATFORM_FFMPEG_ENCODE_ENCODER_H
#define PLATFORM_FFMPEG_ENCODE_ENCODER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/ffmpeg/process/sandbox.h"
#include "platform/ffmpeg/text/error_words.h"

class StopSignals;

struct EncodeJob {
  std::vector<std::string> arguments;  // the program's path first
  Sandbox sandbox;                     // what the encoder may do
  ErrorWords words;                    // with its renamings; the encode's lines are added
  std::chrono::milliseconds stallLimit{30'000};
};

struct EncodeResult {
  enum class End { Done, Failed, Crashed, Stalled, Refused, Stopped, NotStarted };
  End end = End::NotStarted;
  int signal = 0;          // Crashed: the encoder's; Stopped: the one that we got
  int64_t positionMs = 0;  // how much of the output was written
  int64_t bytes = 0;       // and what it came to so far
  std::string words;       // the encoder's error lines
};

// Told a few times a second how far the output has come, in ms and in bytes. False ends the encode:
// its result is Refused.
using EncodeWatch = std::function<bool(int64_t positionMs, int64_t bytes)>;

// Runs the job to its end. The encoder is killed when it gets no further for the job's stall limit
// (ten times that where it hardly got to run, on a machine that is busy with other things),
// when `watch` has seen enough, when one of the stop signals arrives, and by the kernel when this
// process ends. It is always gone on return.
EncodeResult runEncode(EncodeJob job, StopSignals& signals, const EncodeWatch& watch);

#endif
