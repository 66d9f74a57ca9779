// What a finished file weighs, and how much of that its pictures are.
#ifndef PLATFORM_FFMPEG_ENCODE_OUTPUT_SIZE_H
#define PLATFORM_FFMPEG_ENCODE_OUTPUT_SIZE_H

#include <cstdint>
#include <string>

struct OutputSize {
  int64_t bytes = 0;
  int64_t videoBytes = 0;  // the rest is sound and the container
};

// Reads the file to its end. False when it is no movie.
bool measureOutput(const std::string& path, OutputSize* size);

#endif
