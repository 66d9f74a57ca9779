#include "platform/ffmpeg/plan/budget.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kRateTolerance = 1.05;
constexpr double kSizeAim = 0.98;
constexpr double kRateAim = 0.96;
constexpr double kCallersShare = 0.95;
constexpr double kReckonedShare = 0.94;

// The sum of the bitrates asked for; 0 when it is not known.
double askedBitsPerSecond(const Options& options, const MediaFacts& facts) {
  double sum = 0;
  if (facts.video) {
    const int64_t video = options.videoBitsPerSecond();
    if (video == 0) return 0;
    sum += static_cast<double>(video);
  }
  if (!facts.audio.empty() && !options.noAudio) {
    const int64_t sound =
        options.copiesAudio() ? facts.audio[0].bitsPerSecond : options.audioBitsPerSecond();
    if (sound == 0) return 0;
    sum += static_cast<double>(sound);
  }
  return sum;
}

// Whether the bitrates were reckoned from the size: they come to nearly all of it over the length
// that the program's caller knows of, with a share for sound even where there is none. Then they
// are no wish of their own.
bool ratesFollowSize(const Options& options, const MediaFacts& facts) {
  const int64_t clipMs = options.clipLengthMs();
  const double seconds =
      clipMs > 0 ? static_cast<double>(clipMs) / 1000 : static_cast<double>(facts.durationUs) / 1e6;
  const auto rate =
      static_cast<double>(options.videoBitsPerSecond() + options.audioBitsPerSecond());
  return rate * seconds / 8 >= kReckonedShare * static_cast<double>(options.maxSizeBytes);
}

}  // namespace

int64_t clipLengthMs(const Options& options, const MediaFacts& facts) {
  const int64_t left = std::max<int64_t>(facts.durationUs / 1000 - options.startOffsetMs(), 0);
  return options.clipLengthMs() > 0 ? std::min(left, options.clipLengthMs()) : left;
}

Budget budgetOf(const Options& options, const MediaFacts& facts) {
  Budget budget;
  budget.seconds = static_cast<double>(clipLengthMs(options, facts)) / 1000;
  budget.maxBytes = options.maxSizeBytes;
  const bool ratesCount = !facts.durationIsGuess && !options.copiesVideo() &&
                          (budget.maxBytes == 0 || !ratesFollowSize(options, facts));
  const double rate = ratesCount ? askedBitsPerSecond(options, facts) : 0;
  const auto byRate =
      static_cast<int64_t>(rate * kRateTolerance * std::max(budget.seconds, 1.0) / 8);
  if (byRate > 0 && (budget.maxBytes == 0 || byRate < budget.maxBytes)) {
    budget.maxBytes = byRate;
    budget.isByRate = true;
  }
  budget.aimBytes =
      std::llround(static_cast<double>(budget.maxBytes) * (budget.isByRate ? kRateAim : kSizeAim));
  return budget;
}

int64_t askFor(const Budget& budget, int64_t bytes) {
  const auto size = static_cast<double>(bytes);
  const double asked =
      budget.isByRate ? size * 8 / std::max(budget.seconds, 1.0) : size / kCallersShare;
  return static_cast<int64_t>(asked) + 2;
}
