#include "platform/ffmpeg/encode/video_filter.h"

#include <algorithm>
#include <array>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/request/options.h"

namespace {

constexpr PictureSize kQcif = {176, 144};
constexpr PictureSize kCif = {352, 288};
constexpr std::array<PictureSize, 5> kH263Sizes = {
    {{128, 96}, kQcif, kCif, {704, 576}, {1408, 1152}}};
constexpr int64_t kCifBitsPerSecond = 300'000;

std::string scale(const std::string& width, const std::string& height, const Options& options,
                  const std::string& range) {
  const std::string flags = options.scalerFlags.empty() ? "" : ":flags=" + options.scalerFlags;
  return "scale=w='" + width + "':h='" + height + "'" + flags + range;
}

// Fits the shape that a viewer sees into `size`, in square pixels, and fills up with black.
std::string fit(PictureSize size, const Options& options, const std::string& range) {
  const std::string width = std::to_string(size.width);
  const std::string height = std::to_string(size.height);
  return scale("max(2,2*trunc(min(" + width + "," + height + "*dar)/2))",
               "max(2,2*trunc(min(" + height + "," + width + "/dar)/2))", options, range) +
         ",setsar=1,pad=" + width + ":" + height + ":(ow-iw)/2:(oh-ih)/2";
}

std::string resize(const Options& options, const VideoFacts& video, const std::string& range) {
  const auto even = [](int length) { return std::to_string(length & ~1); };
  const bool isH263 = options.videoCodec == "h263";
  const bool isLegal =
      std::find(kH263Sizes.begin(), kH263Sizes.end(), options.size) != kH263Sizes.end();
  if (isH263 && !isLegal) {
    return fit(options.videoBitsPerSecond() < kCifBitsPerSecond ? kQcif : kCif, options, range);
  }
  if (options.size.width > 0) {
    return scale(even(options.size.width), even(options.size.height), options, range);
  }
  if (video.width % 2 != 0 || video.height % 2 != 0 || !range.empty()) {
    return scale("max(2,2*trunc(iw/2))", "max(2,2*trunc(ih/2))", options, range);
  }
  return "";
}

}  // namespace

std::string videoFilter(const Options& options, const VideoFacts& video) {
  // Players of MPEG-4 and H.263 expect the narrow range; only Motion JPEG is full by nature.
  const bool narrows = video.fullRange && options.videoCodec != "mjpeg";
  const std::string chain = resize(options, video, narrows ? ":out_range=tv" : "");
  return narrows ? chain + ",format=yuv420p" : chain;
}
