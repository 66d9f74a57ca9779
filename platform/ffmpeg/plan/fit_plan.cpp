#include "platform/ffmpeg/plan/fit_plan.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string>

#include "platform/ffmpeg/plan/copying.h"

namespace {

using Kind = Attempt::Kind;
using End = Outcome::End;

constexpr double kFilled = 0.93;      // of a size: enough, without another encode
constexpr double kFilledRate = 0.86;  // of a bitrate
constexpr double kFinest = 2.6;       // mean quantiser: more bits would not show
constexpr int kCoarsest = 31;
constexpr double kPlentyPerPixel = 0.3;  // bits: no need to look closer
constexpr double kSoundShare = 0.4;      // of the budget, at most
constexpr double kHopeless = 1.5;        // a first pass beyond it has hit its coarsest quantiser
constexpr double kUsualPower = 0.8;      // bytes fall with the quantiser to about this power
constexpr int kMaxSeconds = 2;
constexpr int kMaxStepsDown = 3;
// Rate control runs ahead by about this part of its tolerance, for good.
constexpr double kRunsAhead = 0.3;
// Containers: a fixed part, and the entries of one sample in the index.
constexpr double kHeadBytes = 1500;
constexpr double kSampleBytes = 11;

double toleranceSeconds(double clipSeconds) {
  return std::clamp(clipSeconds / 6, 0.2, 3.0);
}

// The coarsest quantiser that a larger picture is worth, measured on fourteen clips: with SSIM
// against the source as the judge, the largest picture below it is the best or within 0.01 of it
// in nine of ten cases.
double bearableQuantiser(const Options& options) {
  return options.videoCodec == "h263" ? 12 : 16;
}

}  // namespace

bool keepsPassLog(const Options& options) {
  return hasQuantiser(options) || options.videoCodec == "libx264";
}

bool hasQuantiser(const Options& options) {
  static const std::set<std::string> names = {"mpeg4",      "h263",      "h263p", "flv",
                                              "msmpeg4",    "wmv1",      "wmv2",  "msmpeg4v2",
                                              "mpeg1video", "mpeg2video"};
  return names.count(options.videoCodec) > 0;
}

FitPlan::FitPlan(const Options& asked, const MediaFacts& about)
    : options(asked), facts(about), limits(budgetOf(asked, about)) {
  if (facts.video && !options.copiesVideo()) rungs = pictureLadder(options, *facts.video);
  planEncode();
  if (isAlreadyAsAsked(options, facts, limits)) next.kind = Kind::Copy;
}

void FitPlan::planEncode() {
  next = Attempt{};
  next.sound = soundFor(limits.aimBytes);
  if (rungs.empty()) return;
  if (limits.maxBytes > 0 && keepsPassLog(options)) {
    planFirst();
    return;
  }
  next.picture = rungs.front();
  next.videoBitsPerSecond = options.videoBitsPerSecond();
}

SoundChoice FitPlan::soundFor(int64_t bytes) const {
  if (facts.audio.empty() || options.noAudio || options.copiesAudio()) return {};
  int64_t bits = options.audioBitsPerSecond();
  if (limits.maxBytes > 0 && limits.seconds > 0) {
    const auto most =
        static_cast<int64_t>(static_cast<double>(bytes) * 8 * (facts.video ? kSoundShare : 1) /
                             std::max(limits.seconds, 1.0));
    bits = bits > 0 ? std::min(bits, most) : most;
  }
  SoundChoice sound = chooseSound(options, facts.audio[0], bits);
  if (bits == 0) {
    sound = {0, options.sampleRateHz, options.channels};
    if (sound.channels == 0 && facts.audio[0].channels > 2) sound.channels = 2;
  }
  return sound;
}

double FitPlan::restBytes(const Rung& picture, const SoundChoice& sound) const {
  if (measuredRest > 0) return measuredRest;
  double bytes = kHeadBytes + kSampleBytes * picture.framesPerSecond * limits.seconds;
  if (facts.audio.empty() || options.noAudio) return bytes;
  const int64_t bits = options.copiesAudio() ? facts.audio[0].bitsPerSecond : sound.bitsPerSecond;
  bytes += static_cast<double>(bits) * limits.seconds / 8;
  return bytes + kSampleBytes * limits.seconds / packetSeconds(options, sound, facts.audio[0]);
}

// Where next to nothing is left for the pictures they get a little all the same, and the outcome
// tells.
double FitPlan::videoAimBits(const Rung& picture) const {
  const double all = static_cast<double>(limits.aimBytes);
  return 8 * std::max(all - restBytes(picture, next.sound), all * 0.05);
}

bool FitPlan::wantsSample() const {
  if (next.kind != Kind::First || !hasQuantiser(options)) return false;
  const bool sizeIsOpen = rungs.front().size != rungs.back().size;
  const Rung& top = rungs.front();
  const double frames = std::max(1.0, top.framesPerSecond * limits.seconds);
  return (sizeIsOpen || rungs.size() > 1) &&
         videoAimBits(top) < kPlentyPerPixel * top.pixels() * frames;
}

void FitPlan::sampled(const Sample& sample) {
  const auto fits = [&](double quantiser, double margin) {
    return std::find_if(rungs.begin(), rungs.end(), [&](const Rung& candidate) {
      return sample.videoBits(candidate, quantiser, limits.seconds) * margin <=
             videoAimBits(candidate);
    });
  };
  auto found = fits(bearableQuantiser(options), 1);
  if (found == rungs.end()) found = fits(kCoarsest, 1.15);
  rung = found == rungs.end() ? rungs.size() - 1 : static_cast<size_t>(found - rungs.begin());
  planFirst();
}

void FitPlan::continueFrom(const Rung& picture, const std::optional<Complexity>& log) {
  const auto same = std::find_if(rungs.begin(), rungs.end(), [&](const Rung& candidate) {
    return candidate.size == picture.size &&
           std::abs(candidate.rate.value() - picture.rate.value()) < 0.001;
  });
  if (same == rungs.end() || next.kind != Kind::First) return;
  rung = static_cast<size_t>(same - rungs.begin());
  planFirst();
  firstLog = log;
  if (log) lastQuantiser = log->quantiser;
  planSecond(videoAimBits(*same));
}

void FitPlan::planFirst() {
  next = Attempt{};
  next.kind = Kind::First;
  next.picture = rungs[rung];
  next.sound = soundFor(limits.aimBytes);
  measuredRest = 0;
  firstLog.reset();
  seconds = 0;
  constants = 0;
  // The encoder spends its bitrate on frames at their nominal rate.
  const double length =
      std::max(limits.seconds, 0.04) * next.picture.framesPerSecond / next.picture.rate.value();
  const double tolerance = toleranceSeconds(limits.seconds);
  const double bits =
      videoAimBits(next.picture) / (length + kRunsAhead * std::min(tolerance, limits.seconds));
  next.videoBitsPerSecond = std::max<int64_t>(1000, std::llround(bits));
  next.toleranceBits = std::llround(bits * tolerance);
  next.stopBytes = std::llround(static_cast<double>(limits.maxBytes) * kHopeless);
  next.stopsEarly = true;
}

void FitPlan::planSecond(double bits) {
  const double frames =
      firstLog ? firstLog->frames() : std::max(1.0, next.picture.framesPerSecond * limits.seconds);
  const double tolerance = toleranceSeconds(limits.seconds);
  const double length = frames / next.picture.rate.value();
  const double rate = bits / (length + kRunsAhead / 2 * std::min(tolerance, length));
  next.kind = Kind::Second;
  next.videoBitsPerSecond = std::max<int64_t>(1000, std::llround(rate));
  next.toleranceBits = std::llround(rate * tolerance);
  next.stopBytes = std::llround(static_cast<double>(limits.maxBytes) * kHopeless);
  next.stopsEarly = false;
  ++seconds;
}

void FitPlan::planConstant(int quantiser) {
  next.kind = Kind::Constant;
  next.quantiser = std::clamp(quantiser, 1, kCoarsest);
  next.videoBitsPerSecond = 0;
  next.toleranceBits = 0;
  next.stopBytes = std::llround(static_cast<double>(limits.maxBytes) * kHopeless);
  next.stopsEarly = false;
  ++constants;
}

void FitPlan::planCoarsest() {
  rung = rungs.size() - 1;
  next.picture = rungs[rung];
  next.sound = soundFor(0);
  planConstant(kCoarsest);
  next.stopBytes = 0;  // its size is the answer, whatever it is
  isCoarsest = true;
}

bool FitPlan::fills(int64_t bytes) const {
  const double share = limits.isByRate ? kFilledRate : kFilled;
  return static_cast<double>(bytes) >= share * static_cast<double>(limits.maxBytes);
}

double FitPlan::encodesAfter(double bytes) const {
  if (limits.maxBytes == 0 || next.kind != Kind::First) return 0;
  return bytes <= static_cast<double>(limits.maxBytes) && fills(std::llround(bytes)) ? 0 : 1;
}

// The quantiser that brings a file of `bytes`, made at the last one, down to the aim.
int FitPlan::quantiserFor(double bytes) const {
  const double ratio = std::max(bytes - measuredRest, 1.0) * 8 / videoAimBits(next.picture);
  return static_cast<int>(std::ceil(lastQuantiser * std::pow(ratio, 1 / kUsualPower)));
}

FitPlan::Verdict FitPlan::tryBelow(double excess) {
  if (bestBytes > 0) return Verdict::Done;
  const double wanted = rungs[rung].pixels() * rungs[rung].framesPerSecond / (1.2 * excess);
  ++rung;
  while (rung < rungs.size() && rungs[rung].pixels() * rungs[rung].framesPerSecond > wanted) {
    ++rung;
  }
  if (rung < rungs.size() && ++stepsDown <= kMaxStepsDown) {
    planFirst();
  } else if (hasQuantiser(options)) {
    planCoarsest();
  } else {
    return Verdict::Impossible;
  }
  return Verdict::Encode;
}

FitPlan::Verdict FitPlan::afterFirst(const Outcome& outcome, bool fits) {
  firstLog = outcome.log;
  if (firstLog) lastQuantiser = firstLog->quantiser;
  const double excess = static_cast<double>(outcome.bytes) / static_cast<double>(limits.aimBytes);
  if (outcome.end != End::Whole) return tryBelow(std::max(excess, kHopeless));
  const bool isFinest = firstLog && firstLog->quantiser <= kFinest;
  if (fits && (fills(outcome.bytes) || isFinest)) return Verdict::Done;
  // Scaled by what the pictures came to: frames that the rate did not foresee are in it.
  const double made = static_cast<double>(outcome.videoBytes) * 8;
  const double wanted = videoAimBits(next.picture);
  if (firstLog) {
    planSecond(wanted);
  } else {
    const double rate = static_cast<double>(next.videoBitsPerSecond) * wanted / std::max(made, 1.0);
    planSecond(wanted);
    next.videoBitsPerSecond = std::max<int64_t>(1000, std::llround(rate));
  }
  return Verdict::Encode;
}

FitPlan::Verdict FitPlan::afterSecond(const Outcome& outcome, bool fits) {
  if (fits && (fills(outcome.bytes) || seconds >= kMaxSeconds)) return Verdict::Done;
  const double max = static_cast<double>(limits.maxBytes);
  const double made = static_cast<double>(outcome.bytes);
  if (outcome.end == End::Whole && made < 1.15 * max && seconds < kMaxSeconds) {
    const double scale = static_cast<double>(limits.aimBytes) / made;
    const int64_t rate = next.videoBitsPerSecond;
    planSecond(1);
    next.videoBitsPerSecond = std::llround(static_cast<double>(rate) * scale);
    next.toleranceBits = std::llround(static_cast<double>(next.videoBitsPerSecond) *
                                      toleranceSeconds(limits.seconds));
    return Verdict::Encode;
  }
  if (bestBytes > 0) return Verdict::Done;
  if (hasQuantiser(options) && lastQuantiser > 0) {
    const double bytes = outcome.end == End::Whole ? made : 1.1 * max;
    const int quantiser = quantiserFor(bytes);
    if (quantiser < kCoarsest) {
      planConstant(quantiser);
      lastQuantiser = quantiser;
      return Verdict::Encode;
    }
  }
  return tryBelow(1.2);
}

FitPlan::Verdict FitPlan::afterConstant(const Outcome& outcome, bool fits) {
  const int quantiser = next.quantiser;
  if (!fits && isCoarsest) return bestBytes > 0 ? Verdict::Done : Verdict::Impossible;
  if (!fits) return bestBytes > 0 ? Verdict::Done : tryBelow(1.2);
  if (!isCoarsest || fills(outcome.bytes) || constants > 1) return Verdict::Done;
  // There is room above the coarsest: one finer encode, kept if it fits.
  lastQuantiser = quantiser;
  const int finer = std::max(2, quantiserFor(static_cast<double>(outcome.bytes)));
  if (finer >= quantiser) return Verdict::Done;
  planConstant(finer);
  return Verdict::Encode;
}

FitPlan::Verdict FitPlan::take(const Outcome& outcome) {
  const bool isWhole = outcome.end == End::Whole;
  const bool fits = isWhole && (limits.maxBytes == 0 || outcome.bytes <= limits.maxBytes);
  lastIsBest = fits && outcome.bytes > bestBytes;
  if (lastIsBest) bestBytes = outcome.bytes;
  if (isWhole) measuredRest = static_cast<double>(outcome.bytes - outcome.videoBytes);
  if (isWhole && (next.kind != Kind::Constant || isCoarsest)) smallest = outcome.bytes;
  switch (next.kind) {
    case Kind::First:
      return afterFirst(outcome, fits);
    case Kind::Second:
      return afterSecond(outcome, fits);
    case Kind::Constant:
      return afterConstant(outcome, fits);
    case Kind::Copy:
      if (!fits) planEncode();
      return fits ? Verdict::Done : Verdict::Encode;
    default:
      return fits ? Verdict::Done : Verdict::Impossible;
  }
}
