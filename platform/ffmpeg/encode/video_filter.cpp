#include "platform/ffmpeg/encode/video_filter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/ffmpeg/plan/picture_ladder.h"
#include "platform/ffmpeg/probe/media_facts.h"

namespace {

constexpr int kTallestOldMatrix = 576;  // above it players take BT.709 for granted, below BT.601
constexpr int kRoundingPixels = 2;

int even(double length) {
  return std::max(2, 2 * static_cast<int>(std::lround(length / 2)));
}

// The largest picture of the shape that a viewer sees within `size`.
PictureSize shapeWithin(PictureSize size, PictureSize seen) {
  const double scale = std::min(static_cast<double>(size.width) / seen.width,
                                static_cast<double>(size.height) / seen.height);
  const PictureSize inner = {std::min(even(seen.width * scale), size.width),
                             std::min(even(seen.height * scale), size.height)};
  const bool isAll =
      size.width - inner.width <= kRoundingPixels && size.height - inner.height <= kRoundingPixels;
  return isAll ? size : inner;
}

// The colour matrix, as the scaler calls it, that a picture without a label is taken to have.
std::string matrixFor(int height) {
  return height > kTallestOldMatrix ? "bt709" : "bt601";
}

std::string matrixOf(const VideoFacts& video) {
  if (video.colorMatrix.starts_with("bt2020")) return "bt2020";
  if (video.colorMatrix == "bt709") return "bt709";
  if (video.colorMatrix.empty()) return matrixFor(std::min(video.width, video.height));
  return "bt601";
}

bool isHighRange(const VideoFacts& video) {
  return video.colorTransfer == "smpte2084" || video.colorTransfer == "arib-std-b67";
}

std::string toneMapping(const std::string& matrix) {
  return ",zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=hable:desat=0,"
         "zscale=t=bt709:m=" +
         std::string(matrix == "bt709" ? "bt709" : "smpte170m") + ":r=tv,format=yuv420p";
}

// What the scaler must change in the colours on its way.
std::string colours(const Options& options, const VideoFacts& video, const std::string& matrix) {
  // Players of MPEG-4 and H.263 expect the narrow range; only Motion JPEG is full by nature.
  std::string text = video.fullRange && options.videoCodec != "mjpeg" ? ":out_range=tv" : "";
  const std::string source = matrixOf(video);
  if (source != matrix) text += ":in_color_matrix=" + source + ":out_color_matrix=" + matrix;
  return text;
}

}  // namespace

std::string videoFilter(const Options& options, const VideoFacts& video, PictureSize size,
                        bool mapsTones) {
  const PictureSize seen = seenSize(video);
  const std::string matrix = matrixFor(std::min(size.width, size.height));
  const bool isMapped = mapsTones && isHighRange(video);
  const std::string change = isMapped ? "" : colours(options, video, matrix);
  const PictureSize inner = shapeWithin(size, seen);
  const bool isSquare = !video.pixelAspect.isKnown() || video.pixelAspect.value() == 1;
  const bool isEven = video.width % 2 == 0 && video.height % 2 == 0;
  if (inner == seen && inner == size && isSquare && isEven && change.empty() && !isMapped) {
    return "";
  }

  std::string chain = "scale=" + std::to_string(inner.width) + ":" + std::to_string(inner.height) +
                      ":flags=bicubic" + change + ",setsar=1";
  if (isMapped) chain += toneMapping(matrix);
  if (!(inner == size)) {
    chain += ",pad=" + std::to_string(size.width) + ":" + std::to_string(size.height) +
             ":(ow-iw)/2:(oh-ih)/2";
  }
  return change.empty() ? chain : chain + ",format=yuv420p";
}
