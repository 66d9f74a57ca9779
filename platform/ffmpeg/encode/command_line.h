// The translation: the old command line, and what the plan makes of it, in the words of the
// system's ffmpeg.
#ifndef PLATFORM_FFMPEG_ENCODE_COMMAND_LINE_H
#define PLATFORM_FFMPEG_ENCODE_COMMAND_LINE_H

#include <array>
#include <string>
#include <vector>

#include "platform/ffmpeg/plan/attempt.h"
#include "platform/ffmpeg/plan/sample.h"
#include "platform/ffmpeg/request/options.h"

struct MediaFacts;

// Where one encode reads its program and puts its files; all of it is the caller's choice.
struct EncodePaths {
  std::string program;
  std::string output;         // the null device, or a file
  std::string passLogPrefix;  // the log of a first or second pass is PREFIX-0.log
  // Pictures of a high dynamic range are brought down by a filter that not every ffmpeg has.
  bool mapsTones = true;
  int threads = 1;  // for each decoder, filter and encoder
};

// The argument vector of one attempt, the program's path first. A pure function of what it is
// given. Progress goes to the encode's standard output, error lines to its standard error.
std::vector<std::string> commandLine(const Options& options, const MediaFacts& facts,
                                     const Attempt& attempt, const EncodePaths& paths);

// One run that encodes the pictures of each part in each size at each of kSampleQuantisers and
// leaves the logs PREFIX-N.log, N from 0 counting quantisers first, then sizes, then parts.
std::vector<std::string> sampleLine(const Options& options, const MediaFacts& facts,
                                    const std::vector<SamplePart>& parts,
                                    const std::array<Rung, 2>& rungs, const EncodePaths& paths);

// Whether the start of a part can be jumped to, because the container knows where it is.
bool canJump(const MediaFacts& facts);

#endif
