// One run of today's ffmpeg: started in a sandbox, watched, and its end told in plain words.
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
  std::chrono::milliseconds stallLimit{60'000};
};

struct EncodeResult {
  enum class End { Done, Failed, Crashed, Stalled, Stopped, NotStarted };
  End end = End::NotStarted;
  int signal = 0;          // Crashed: the encoder's; Stopped: the one that we got
  int64_t positionMs = 0;  // how much of the output was written
  std::string words;       // the encoder's error lines
};

// Runs the job to its end, calling `onProgress` with the position in ms a few times a second. The
// encoder is killed when it gets no further for the job's stall limit, when one of the stop
// signals arrives, and by the kernel when this process ends. It is always gone on return.
EncodeResult runEncode(EncodeJob job, StopSignals& signals,
                       const std::function<void(int64_t)>& onProgress);

#endif
