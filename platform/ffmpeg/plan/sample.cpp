#include "platform/ffmpeg/plan/sample.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kShare = 0.1;  // of the clip
constexpr double kLeastSeconds = 0.6;
constexpr double kMostSeconds = 6;
constexpr int kParts = 3;
constexpr double kFramesPerIntra = 250;  // the distance of key frames
// How much more a frame costs when those before it are left away.
constexpr double kSkipExponent = 0.5;

double powerBetween(double low, double high, double ratio) {
  if (low <= 0 || high <= 0) return 0;
  return std::log(high / low) / std::log(ratio);
}

}  // namespace

std::vector<SamplePart> sampleParts(double clipSeconds, bool canJump) {
  const double whole = std::clamp(clipSeconds * kShare, kLeastSeconds, kMostSeconds);
  const double seconds = std::min(whole / kParts, clipSeconds / (2 * kParts));
  if (!canJump) return {{0, std::min(whole, clipSeconds)}};
  std::vector<SamplePart> parts;
  parts.reserve(kParts);
  for (int i = 0; i < kParts; ++i) {
    parts.push_back({clipSeconds * (2 * i + 1) / (2 * kParts) - seconds / 2, seconds});
  }
  return parts;
}

std::array<Rung, 2> sampleRungs(const std::vector<Rung>& ladder, double mostPixels) {
  const auto first = std::find_if(ladder.begin(), ladder.end(),
                                  [&](const Rung& rung) { return rung.pixels() <= mostPixels; });
  const Rung& large = first == ladder.end() ? ladder.back() : *first;
  const double quarter = large.pixels() / 4;
  const auto distance = [&](const Rung& rung) {
    return std::abs(std::log(rung.pixels() / quarter));
  };
  // Of those of one size the first, which has the full rate.
  const auto small = std::min_element(
      ladder.begin(), ladder.end(),
      [&](const Rung& one, const Rung& other) { return distance(one) < distance(other); });
  return {large, *small};
}

Sample::Sample(const std::array<Rung, 2>& sampledRungs,
               const std::array<PerQuantiser, 2>& complexities)
    : rungs(sampledRungs), measured(complexities) {}

double Sample::bitsAt(size_t size, const Rung& rung, double quantiser, double seconds) const {
  const double frames = std::max(1.0, rung.framesPerSecond * seconds);
  const double intra = std::ceil(frames / kFramesPerIntra);
  const double fine = measured[size][0].bitsOf(frames, intra);
  const double coarse = measured[size][1].bitsOf(frames, intra);
  const double finest = measured[size][0].quantiser;
  const double ratio = measured[size][1].quantiser / finest;
  return fine * std::pow(quantiser / finest, powerBetween(fine, coarse, ratio));
}

bool Sample::isEven(double seconds) const {
  const double frames = std::max(1.0, rungs[0].framesPerSecond * seconds);
  const double intra = std::ceil(frames / kFramesPerIntra);
  const Complexity& fine = measured[0][0];
  return fine.bitsOf(frames - intra, 0) > fine.bitsOf(intra, intra);
}

double Sample::videoBits(const Rung& rung, double quantiser, double seconds) const {
  const double large = bitsAt(0, rung, quantiser, seconds);
  const double small = bitsAt(1, rung, quantiser, seconds);
  const double step = rungs[0].pixels() / rungs[1].pixels();
  const double power = step > 1 ? powerBetween(small, large, step) : 0;
  const double bits = large * std::pow(rung.pixels() / rungs[0].pixels(), power);
  return bits * std::pow(rungs[0].framesPerSecond / rung.framesPerSecond, kSkipExponent);
}
