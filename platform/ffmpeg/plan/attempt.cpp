#include "platform/ffmpeg/plan/attempt.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kHopeless = 1.5;  // of a limit: beyond it rate control is at its coarsest
// Rate control runs ahead by about this part of its tolerance, for good.
constexpr double kRunsAhead = 0.3;
constexpr double kShortestSeconds = 0.04;
constexpr int64_t kLeastBitsPerSecond = 1000;

double toleranceSeconds(const Budget& budget) {
  return std::clamp(budget.seconds / 6, 0.2, 3.0);
}

Attempt attemptOf(Attempt::Kind kind, const Rung& picture, const SoundChoice& sound) {
  Attempt attempt;
  attempt.kind = kind;
  attempt.picture = picture;
  attempt.sound = sound;
  return attempt;
}

int64_t hopelessBytes(const Budget& budget) {
  return std::llround(static_cast<double>(budget.maxBytes) * kHopeless);
}

void setRate(double bitsPerSecond, const Budget& budget, Attempt* attempt) {
  attempt->videoBitsPerSecond = std::max<int64_t>(kLeastBitsPerSecond, std::llround(bitsPerSecond));
  attempt->toleranceBits = std::llround(bitsPerSecond * toleranceSeconds(budget));
  attempt->stopBytes = hopelessBytes(budget);
}

}  // namespace

Attempt firstPass(const Rung& picture, const SoundChoice& sound, double videoBits,
                  const Budget& budget) {
  Attempt attempt = attemptOf(Attempt::Kind::First, picture, sound);
  // The encoder spends its bitrate on frames at their nominal rate.
  const double length =
      std::max(budget.seconds, kShortestSeconds) * picture.framesPerSecond / picture.rate.value();
  const double ahead = kRunsAhead * std::min(toleranceSeconds(budget), budget.seconds);
  setRate(videoBits / (length + ahead), budget, &attempt);
  attempt.stopsEarly = true;
  return attempt;
}

Attempt secondPass(const Rung& picture, const SoundChoice& sound, double videoBits, double frames,
                   const Budget& budget) {
  Attempt attempt = attemptOf(Attempt::Kind::Second, picture, sound);
  const double length = std::max(frames, 1.0) / picture.rate.value();
  const double ahead = kRunsAhead / 2 * std::min(toleranceSeconds(budget), length);
  setRate(videoBits / (length + ahead), budget, &attempt);
  return attempt;
}

Attempt constantQuantiser(const Rung& picture, const SoundChoice& sound, int quantiser,
                          const Budget& budget) {
  Attempt attempt = attemptOf(Attempt::Kind::Constant, picture, sound);
  attempt.quantiser = std::max(1, quantiser);
  attempt.stopBytes = hopelessBytes(budget);
  return attempt;
}

Attempt coarsest(const Rung& picture, const SoundChoice& sound, int quantiser) {
  Attempt attempt = attemptOf(Attempt::Kind::Constant, picture, sound);
  attempt.quantiser = quantiser;
  return attempt;
}
