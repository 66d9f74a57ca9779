// What a movie file is: the figures that the probe reports and the translation builds on.
#ifndef PLATFORM_FFMPEG_PROBE_MEDIA_FACTS_H
#define PLATFORM_FFMPEG_PROBE_MEDIA_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class MediaInput;

struct Ratio {
  int num = 0;
  int den = 1;
  bool isKnown() const { return num > 0 && den > 0; }
  double value() const { return den != 0 ? static_cast<double>(num) / den : 0; }
};

struct VideoFacts {
  int index = 0;
  std::string language;  // empty when unknown
  std::string codec;
  std::string pixelFormat;  // empty when unknown
  int width = 0;
  int height = 0;
  Ratio pixelAspect;
  int64_t bitsPerSecond = 0;  // never 0 once readMediaFacts returned
  Ratio averageRate;          // frames per second, both never unknown
  Ratio nominalRate;
  Ratio timeBase;
  bool fullRange = false;
  int quarterTurns = 0;     // clockwise, 0 to 3, that show the picture upright
  std::string colorMatrix;  // libavutil's names of these two; empty when unknown
  std::string colorTransfer;
};

struct AudioFacts {
  int index = 0;
  std::string language;
  std::string codec;
  int sampleRateHz = 0;
  int channels = 0;
  std::string layout;
  std::string sampleFormat;   // empty when unknown
  int64_t bitsPerSecond = 0;  // 0 when unknown
};

// A file's times are believed up to here: far beyond any movie, and far enough from the end of the
// numbers to compute with.
constexpr int64_t kFarthestUs = INT64_MAX / 2;

struct MediaFacts {
  std::string path;
  std::string format;
  std::vector<std::pair<std::string, std::string>> metadata;
  int64_t sizeBytes = 0;
  int64_t durationUs = 0;        // never below a frame when there is video
  bool durationIsGuess = false;  // from sizes and bitrates, not from times in the file
  int64_t startUs = 0;           // within kFarthestUs of zero
  int64_t bitsPerSecond = 0;
  std::optional<VideoFacts> video;  // the first stream that is no cover picture
  std::vector<AudioFacts> audio;
};

// Fills *facts from an opened file. A length that the file does not state is found by reading it
// to its end, within the input's limits, and then by what part of it was read.
void readMediaFacts(MediaInput& input, const std::string& path, MediaFacts* facts);

#endif
