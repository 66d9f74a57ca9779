// A movie file opened by libavformat, under the limits that foreign files are read with.
#ifndef PLATFORM_FFMPEG_PROBE_MEDIA_INPUT_H
#define PLATFORM_FFMPEG_PROBE_MEDIA_INPUT_H

#include <chrono>
#include <cstdint>
#include <memory>
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

// Owns the opened file. Not thread-safe. Not movable: libavformat keeps a pointer to it.
class MediaInput {
 public:
  MediaInput();
  ~MediaInput();
  MediaInput(const MediaInput&) = delete;
  MediaInput& operator=(const MediaInput&) = delete;

  // Opens the regular file `path` and finds its streams. After `timeLimit` every read, here and
  // later, fails. On failure stores one clear line in *error and returns false.
  bool open(const std::string& path, std::chrono::milliseconds timeLimit, std::string* error);

  AVFormatContext* context() { return avContext; }
  int64_t sizeBytes() const { return fileBytes; }
  bool isOverdue() const { return std::chrono::steady_clock::now() > deadline; }

 private:
  bool checkFile(const std::string& path, std::string* error);

  AVFormatContext* avContext = nullptr;
  int64_t fileBytes = 0;
  std::chrono::steady_clock::time_point deadline;
};

#endif
