// Today's ffmpeg: the program of that name, on PATH or in a usual place, that is not this one.
#ifndef PLATFORM_FFMPEG_PROCESS_REAL_FFMPEG_H
#define PLATFORM_FFMPEG_PROCESS_REAL_FFMPEG_H

#include <string>

// Set in the environment of every ffmpeg that we start: two copies of this program on PATH would
// otherwise start each other for ever.
extern const char kStartedByUs[];

// Its absolute path, links resolved; empty when there is none.
std::string findRealFfmpeg();

#endif
