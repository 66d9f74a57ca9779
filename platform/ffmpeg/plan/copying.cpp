#include "platform/ffmpeg/plan/copying.h"

#include <cmath>
#include <cstdlib>
#include <utility>

#include "platform/ffmpeg/plan/video_coder.h"

namespace {

constexpr double kSameRate = 0.006;  // rates are told in thousandths and probed in hundredths

std::string decodedName(const std::string& encoder) {
  if (encoder == "libfaac") return "aac";
  if (encoder == "libx264") return "h264";
  return encoder == "libopencore_amrnb" ? "amr_nb" : encoder;
}

bool isWhole(const Options& options, const MediaFacts& facts) {
  return options.startOffsetMs() == 0 && !facts.durationIsGuess &&
         (options.clipLengthMs() == 0 || options.clipLengthMs() * 1000 >= facts.durationUs);
}

bool isWithin(int limit, int side) {
  return limit == 0 || side <= limit;
}

// Upright, and in the colours that players of it expect. Those of H.264 turn pictures and stretch
// colours as the file says; the others are of a time before.
bool isShownRight(const Options& options, const VideoFacts& video) {
  if (isH264(options)) return video.pixelFormat == "yuv420p" || video.pixelFormat == "yuvj420p";
  return video.quarterTurns == 0 && !video.fullRange && video.pixelFormat == "yuv420p";
}

bool isThePicture(const Options& options, const VideoFacts& video) {
  PictureSize upright = {video.width, video.height};
  if (video.quarterTurns % 2 != 0) std::swap(upright.width, upright.height);
  const bool sizeIsRight = options.size.width == 0 || options.size == upright;
  const bool rateIsRight =
      options.frameRate.empty() ||
      std::abs(strtod(options.frameRate.c_str(), nullptr) - video.averageRate.value()) < kSameRate;
  return decodedName(options.videoCodec) == video.codec && sizeIsRight && rateIsRight &&
         isWithin(options.mostSize.width, upright.width) &&
         isWithin(options.mostSize.height, upright.height) && isShownRight(options, video);
}

bool isTheSound(const Options& options, const AudioFacts& audio) {
  const bool rateIsRight = options.sampleRateHz == 0 || options.sampleRateHz == audio.sampleRateHz;
  const int most = options.channels > 0 ? options.channels : 2;
  return decodedName(options.audioCodec) == audio.codec && rateIsRight && audio.channels <= most;
}

}  // namespace

bool isAlreadyAsAsked(const Options& options, const MediaFacts& facts, const Budget& budget) {
  const bool fits = budget.maxBytes == 0 || facts.sizeBytes <= budget.maxBytes;
  const bool soundIsRight =
      facts.audio.empty() || (!options.noAudio && isTheSound(options, facts.audio[0]));
  return fits && facts.video && isThePicture(options, *facts.video) && soundIsRight &&
         isWhole(options, facts);
}
