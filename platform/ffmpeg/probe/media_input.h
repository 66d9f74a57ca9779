// A movie file opened by libavformat, under the limits that foreign files are read with.
#ifndef PLATFORM_FFMPEG_PROBE_MEDIA_INPUT_H
#define PLATFORM_FFMPEG_PROBE_MEDIA_INPUT_H

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>

extern "C" {
#include <libavformat/avformat.h>
}

// What may be read at all: real containers in local files. Playlists, scripts and picture
// sequences, which reach for other files, are left out.
extern const char kInputFormats[];
extern const char kInputProtocols[];
constexpr int64_t kMaxInputBytes = int64_t{4} << 30;
constexpr int64_t kMaxPixels = 36'000'000;  // 8K pictures and a little more

// How much a file may cost its reader.
struct ReadLimits {
  std::chrono::milliseconds time;
  clockid_t clock;  // that measures the time: the one on the wall, or the reader's own work
  int64_t bytes;
};

// Owns what libavformat keeps of the opened file, not the descriptor. Not thread-safe. Not movable:
// libavformat keeps a pointer to it.
class MediaInput {
 public:
  MediaInput();
  ~MediaInput();
  MediaInput(const MediaInput&) = delete;
  MediaInput& operator=(const MediaInput&) = delete;

  // Finds the streams of the regular file open at `fd`. `path` gives the format a hint, and error
  // lines their beginning; nothing is opened by it, nor by a name in the file. When the limits are
  // reached every read fails, here and later: what was found by then counts. On failure stores one
  // clear line in *error and returns false.
  bool open(int fd, const std::string& path, const ReadLimits& limits, std::string* error);

  AVFormatContext* context() { return avContext; }
  int64_t sizeBytes() const { return fileBytes; }
  // Whether reading ended, or must end now, before the file did.
  bool isCut() const;

 private:
  static int readCallback(void* input, uint8_t* into, int size);
  static int64_t seekCallback(void* input, int64_t offset, int whence);
  bool makeContext(std::string* error);

  AVFormatContext* avContext = nullptr;
  AVIOContext* reader = nullptr;
  int fileFd = -1;
  int64_t fileBytes = 0;
  int64_t bytesLeft = 0;
  clockid_t clock = CLOCK_MONOTONIC;
  std::chrono::nanoseconds deadline{};
};

#endif
