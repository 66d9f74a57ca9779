#include "platform/ffmpeg/plan/picture_ladder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

#include "platform/ffmpeg/plan/video_coder.h"

extern "C" {
#include <libavutil/parseutils.h>
}

namespace {

constexpr std::array<PictureSize, 5> kH263Sizes = {
    {{1408, 1152}, {704, 576}, {352, 288}, {176, 144}, {128, 96}}};
constexpr Ratio kH263MaxRate = {30000, 1001};  // H.263 counts time in a clock of 29.97 Hz
constexpr double kLargestLegal = 352 * 288;    // phones that play H.263 know no larger picture
constexpr double kSmallestPixels = 128 * 96;
constexpr double kStep = 0.84;  // of each side: 0.7 of the pixels
constexpr double kLowestRate = 7;
constexpr double kSaneRate = 61;  // a nominal rate above it is a clock, not a rate of frames
constexpr double kFilledInRate = 15;

// Measured on fourteen clips at six budgets, with SSIM against the source as the judge: the largest
// picture that stays below is within 0.01 of the best in every case of the four clips that a camera
// took and in 79 % of all for MPEG-4; in 93 % for H.263.
constexpr int kBearable = 12;
constexpr int kBearableUnscaled = 18;  // nothing is lost by scaling
constexpr int kBearableH263 = 16;
constexpr int kBearableBeforeHeldFrames = 28;

int even(double length) {
  return std::max(2, 2 * static_cast<int>(std::lround(length / 2)));
}

// A multiple of 16 wastes no part of a macroblock.
int wholeBlocks(double length) {
  return std::max(16, 16 * static_cast<int>(std::lround(length / 16)));
}

PictureSize scaled(PictureSize full, double scale) {
  const bool isWide = full.width >= full.height;
  const int longSide = wholeBlocks(std::max(full.width, full.height) * scale);
  const double ratio = static_cast<double>(longSide) / std::max(full.width, full.height);
  const int shortSide = even(std::min(full.width, full.height) * ratio);
  return isWide ? PictureSize{longSide, shortSide} : PictureSize{shortSide, longSide};
}

// The picture as a viewer sees it, made smaller where it may not be that large.
PictureSize largestSize(const Options& options, const VideoFacts& video) {
  const PictureSize seen = seenSize(video);
  const auto most = [](int limit, int side) {
    return limit > 0 ? std::min(1.0, static_cast<double>(limit) / side) : 1.0;
  };
  const double scale = std::min({most(options.mostSize.width, seen.width),
                                 most(options.mostSize.height, seen.height),
                                 most(longestSide(options), std::max(seen.width, seen.height))});
  if (scale >= 1) return seen;
  const auto side = [&](int length) { return std::max(2, static_cast<int>(length * scale) & ~1); };
  return {side(seen.width), side(seen.height)};
}

std::vector<PictureSize> freeSizes(const Options& options, const VideoFacts& video) {
  std::vector<PictureSize> sizes = {largestSize(options, video)};
  for (double scale = kStep;; scale *= kStep) {
    const PictureSize size = scaled(sizes.front(), scale);
    const double pixels = static_cast<double>(size.width) * size.height;
    if (pixels < kSmallestPixels ||
        pixels >= static_cast<double>(sizes.front().width) * sizes.front().height) {
      break;
    }
    if (size != sizes.back()) sizes.push_back(size);
  }
  return sizes;
}

std::vector<PictureSize> h263Sizes(const Options& options, const VideoFacts& video) {
  if (std::find(kH263Sizes.begin(), kH263Sizes.end(), options.size) != kH263Sizes.end()) {
    return {options.size};
  }
  const PictureSize most = options.size.width > 0 ? options.size : largestSize(options, video);
  std::vector<PictureSize> sizes;
  for (const PictureSize size : kH263Sizes) {
    const bool isTooLarge = size.width * size.height > kLargestLegal;
    // One size up is allowed: 320x240 looks better in 352x288 than in 176x144.
    const bool isFarAbove = size.width >= 2 * most.width && size.height >= 2 * most.height;
    if (!isTooLarge && !isFarAbove) sizes.push_back(size);
  }
  if (sizes.empty()) sizes.push_back(kH263Sizes.back());
  return sizes;
}

std::vector<PictureSize> sizesFor(const Options& options, const VideoFacts& video) {
  if (options.videoCodec == "h263") return h263Sizes(options, video);
  if (options.size.width <= 0) return freeSizes(options, video);
  return {{options.size.width & ~1, options.size.height & ~1}};
}

Ratio ownRate(const Options& options, const VideoFacts& video) {
  // Even times need one rate for all; kept times need one fine enough for the shortest frame.
  const bool isSane = video.nominalRate.value() <= kSaneRate;
  return keepsTimes(options) && isSane ? video.nominalRate : video.averageRate;
}

bool isNear(double one, double other) {
  return std::abs(one - other) < 0.006;
}

Ratio askedRate(const std::string& text) {
  AVRational rate = {0, 1};
  av_parse_video_rate(&rate, text.c_str());
  return {rate.num, rate.den};
}

struct Rate {
  Ratio rate;
  bool isFixed = false;
};

// The rate to begin with. Two rates are filled in by the caller of this program, where its own
// caller left the rate open: 15 for H.263 below 300 kb/s, and the average rate of an uneven clip.
Rate wantedRate(const Options& options, const VideoFacts& video) {
  if (options.frameRate.empty()) return {ownRate(options, video)};
  const Ratio asked = askedRate(options.frameRate);
  const bool isUneven = video.nominalRate.value() > video.averageRate.value();
  if (isUneven && isNear(asked.value(), video.averageRate.value())) {
    return {ownRate(options, video)};
  }
  const bool isFilledIn = options.videoCodec == "h263" && isNear(asked.value(), kFilledInRate);
  return {asked, !isFilledIn};
}

Rung rungOf(PictureSize size, Ratio rate, const Options& options, const VideoFacts& video) {
  const double most = rate.value();
  return {size, rate, keepsTimes(options) ? std::min(most, video.averageRate.value()) : most};
}

}  // namespace

PictureSize seenSize(const VideoFacts& video) {
  double width = video.width;
  double height = video.height;
  if (video.pixelAspect.isKnown() && video.pixelAspect.num != video.pixelAspect.den) {
    width *= video.pixelAspect.value();
  } else if (video.quarterTurns % 2 == 0) {
    return {std::max(2, video.width & ~1), std::max(2, video.height & ~1)};
  } else {
    return {std::max(2, video.height & ~1), std::max(2, video.width & ~1)};
  }
  if (video.quarterTurns % 2 != 0) std::swap(width, height);
  return {even(width), even(height)};
}

bool keepsTimes(const Options& options) {
  return options.format == "mp4" || options.format == "mov";
}

std::vector<Rung> pictureLadder(const Options& options, const VideoFacts& video) {
  Rate first = wantedRate(options, video);
  if (options.videoCodec == "h263" && first.rate.value() > kH263MaxRate.value()) {
    first.rate = kH263MaxRate;
  }
  const std::vector<PictureSize> sizes = sizesFor(options, video);
  std::vector<Rung> rungs;
  rungs.reserve(sizes.size());
  for (const PictureSize size : sizes) {
    rungs.push_back(rungOf(size, first.rate, options, video));
  }
  // Whole fractions of the rate keep motion even.
  for (int part = 2; !first.isFixed && first.rate.value() / part >= kLowestRate; ++part) {
    const Ratio rate = {first.rate.num, first.rate.den * part};
    rungs.push_back(rungOf(sizes.back(), rate, options, video));
  }
  return rungs;
}

int bearableQuantiser(const Options& options, const std::vector<Rung>& rungs, size_t chosen) {
  const bool isLastOfRate = chosen + 1 == rungs.size() ||
                            rungs[chosen + 1].framesPerSecond < rungs[chosen].framesPerSecond;
  if (isLastOfRate) return kBearableBeforeHeldFrames;
  if (options.videoCodec == "h263") return kBearableH263;
  // H.264's curve is flat there, on the three clips that it was measured on.
  if (isH264(options)) return 18;
  return chosen == 0 ? kBearableUnscaled : kBearable;
}
