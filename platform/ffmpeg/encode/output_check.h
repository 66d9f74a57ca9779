// Whether a file that was just encoded is whole.
#ifndef PLATFORM_FFMPEG_ENCODE_OUTPUT_CHECK_H
#define PLATFORM_FFMPEG_ENCODE_OUTPUT_CHECK_H

#include <cstdint>
#include <string>

struct ExpectedOutput {
  bool video = false;
  bool audio = false;
  int64_t writtenMs = 0;  // by the encoder's own account; 0 when it gave none
  int64_t clipMs = 0;     // what was asked for; 0 when it may be shorter
};

// Opens the file and reads its beginning: it has the streams, something in them, and the length.
// On failure stores one clear line in *error and returns false.
bool checkOutput(const std::string& path, const ExpectedOutput& expected, std::string* error);

#endif
