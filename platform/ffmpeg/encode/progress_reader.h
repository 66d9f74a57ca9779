// Reads the key=value lines that the system's ffmpeg writes for "-progress".
#ifndef PLATFORM_FFMPEG_ENCODE_PROGRESS_READER_H
#define PLATFORM_FFMPEG_ENCODE_PROGRESS_READER_H

#include <cstdint>
#include <string>
#include <string_view>

class ProgressReader {
 public:
  // Takes the next piece of the stream, cut anywhere. True when the encode has got further since
  // the last piece; a repeated report of the same state is no progress.
  bool add(std::string_view piece);

  // How much of the output is written, by its own time.
  int64_t positionMs() const { return outTimeUs / 1000; }
  int64_t bytes() const { return totalBytes; }

 private:
  bool takeLine(std::string_view line);

  std::string partial;
  int64_t outTimeUs = 0;
  int64_t frame = 0;
  int64_t totalBytes = 0;
};

#endif
