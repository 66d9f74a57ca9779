// The translation: the old command line, for one encode, in the words of today's ffmpeg.
#ifndef PLATFORM_FFMPEG_ENCODE_COMMAND_LINE_H
#define PLATFORM_FFMPEG_ENCODE_COMMAND_LINE_H

#include <string>
#include <vector>

#include "platform/ffmpeg/request/options.h"

struct MediaFacts;

// Where one encode reads its program and puts its files; all of it is the caller's choice.
struct EncodePaths {
  std::string program;
  std::string output;
  std::string passLogPrefix;  // empty for a single pass
};

// The argument vector, the program's path first. A pure function of what it is given.
// Progress goes to the encode's standard output, error lines to its standard error.
std::vector<std::string> commandLine(const Options& options, const MediaFacts& facts,
                                     const EncodePaths& paths);

#endif
