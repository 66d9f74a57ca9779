#include "platform/ffmpeg/plan/fit_plan.h"

#include <algorithm>
#include <cmath>

#include "platform/ffmpeg/plan/byte_shares.h"
#include "platform/ffmpeg/plan/copying.h"

namespace {

using Kind = Attempt::Kind;
using End = Outcome::End;

constexpr double kFilled = 0.90;        // of a size: enough, without another encode
constexpr double kFilledRate = 0.86;    // of a bitrate
constexpr double kUneven = 0.18;        // spread of the quantisers: shows, and two passes mend it
constexpr double kFinest = 2.6;         // mean quantiser: more bits would not show
constexpr double kFloorMargin = 1.15;   // what is reckoned of a coarsest encode is off by that
constexpr double kSecondMargin = 1.15;  // over a limit by more, a second pass would not mend it
constexpr double kAbortedBy = 1.1;      // what a second pass that gave up was above its bitrate
constexpr double kGain = 1.03;          // in bytes: worth an encode
constexpr double kWorthGrowing = 1.9;   // in pixels a second: as well
// Up to it two passes look at least as good as a fixed quantiser and come nearer to the limit;
// above it they often end beyond the limit, or not at all.
constexpr int kFineQuantiser = 20;
constexpr int kFinestUseful = 2;
// Encodes that come behind one, as a rule. A file that seems to leave room is often only behind the
// encoder.
constexpr double kLikelyAfterFirst = 0.9;  // as long as nothing is known of it
constexpr double kLikelyAfterSmall = 0.7;
constexpr double kLikelyAfterFull = 0.5;  // even a full one may be uneven
constexpr double kLikelyAfterOther = 0.1;
constexpr double kSecondOfH264 = 1;  // its cost in first ones
constexpr int kMostSeconds = 2;      // second passes in one picture
constexpr int kMostQuantisers = 3;
constexpr int kMostPictures = 4;

bool isSame(const Rung& one, const Rung& other) {
  return one.size == other.size && std::abs(one.rate.value() - other.rate.value()) < 0.001;
}

double pixelsPerSecond(const Rung& picture) {
  return picture.pixels() * picture.framesPerSecond;
}

}  // namespace

FitPlan::FitPlan(const Options& asked, const MediaFacts& about)
    : options(asked), facts(about), limits(budgetOf(asked, about)), model(limits.seconds) {
  if (facts.video && !options.copiesVideo()) rungs = pictureLadder(options, *facts.video);
  beginEncode();
  if (isAlreadyAsAsked(options, facts, limits)) next.kind = Kind::Copy;
}

void FitPlan::beginEncode() {
  if (!rungs.empty() && limits.maxBytes > 0 && hasQuantiser(options)) {
    beginPicture(0);
    return;
  }
  next = Attempt{};
  next.sound = sound();
  if (rungs.empty()) return;
  next.picture = rungs.front();
  next.videoBitsPerSecond = options.videoBitsPerSecond();
}

void FitPlan::beginPicture(size_t chosen) {
  rung = chosen;
  log.reset();
  next = firstPass(rungs[rung], sound(), videoAimBits(rungs[rung], sound()), limits);
  if (isH264(options)) next.stopBytes = 0;  // it begins far too fine, and only its log is wanted
}

SoundChoice FitPlan::sound() const {
  return soundWithin(limits.aimBytes, options, facts, limits);
}

// Measured where an encode of the same rates was whole.
double FitPlan::besideBytes(const Rung& picture, const SoundChoice& sound) const {
  const auto alike = std::find_if(tried.rbegin(), tried.rend(), [&](const Tried& one) {
    return one.outcome.end == End::Whole && one.outcome.videoBytes > 0 &&
           one.attempt.sound == sound && one.attempt.picture.rate.value() == picture.rate.value();
  });
  if (alike == tried.rend()) return bytesBeside(picture, sound, options, facts, limits.seconds);
  return static_cast<double>(alike->outcome.bytes - alike->outcome.videoBytes);
}

// Where next to nothing is left for the pictures they get a little all the same, and the outcome
// tells.
double FitPlan::videoAimBits(const Rung& picture, const SoundChoice& sound) const {
  const double all = static_cast<double>(limits.aimBytes);
  return 8 * std::max(all - besideBytes(picture, sound), all * 0.05);
}

double FitPlan::videoBitsOf(const Tried& one) const {
  if (one.outcome.videoBytes > 0) return 8 * static_cast<double>(one.outcome.videoBytes);
  if (one.outcome.log) return one.outcome.log->bits();
  const double beside = besideBytes(one.attempt.picture, one.attempt.sound);
  return 8 * std::max(static_cast<double>(one.outcome.bytes) - beside, 1.0);
}

int FitPlan::made(Kind kind) const {
  return static_cast<int>(std::count_if(tried.begin(), tried.end(), [&](const Tried& one) {
    return one.attempt.kind == kind && isSame(one.attempt.picture, rungs[rung]);
  }));
}

bool FitPlan::fits(const Outcome& outcome) const {
  return outcome.end == End::Whole && (limits.maxBytes == 0 || outcome.bytes <= limits.maxBytes);
}

bool FitPlan::fills(int64_t bytes) const {
  const double share = limits.isByRate ? kFilledRate : kFilled;
  return static_cast<double>(bytes) >= share * static_cast<double>(limits.maxBytes);
}

double FitPlan::encodesAfterUnknown() const {
  return isH264(options) ? kSecondOfH264 : kLikelyAfterFirst;
}

double FitPlan::encodesAfter(double bytes) const {
  if (limits.maxBytes == 0) return 0;
  if (next.kind != Kind::First) return kLikelyAfterOther;
  if (isH264(options)) return kSecondOfH264;
  if (bytes > static_cast<double>(limits.maxBytes)) return 1;
  return fills(std::llround(bytes)) ? kLikelyAfterFull : kLikelyAfterSmall;
}

bool FitPlan::wantsSample() const {
  const bool isSizeOpen = !rungs.empty() && rungs.front().size != rungs.back().size;
  if (next.kind != Kind::First || !hasQuantiser(options) || !isSizeOpen) return false;
  const Rung& top = rungs.front();
  const double frames = std::max(1.0, top.framesPerSecond * limits.seconds);
  return videoAimBits(top, next.sound) < kPlentyPerPixel * top.pixels() * frames;
}

// The best rung that is reckoned to stay within the limit while it is bearable; the ladder's end
// if none.
size_t FitPlan::bearableRung(const SizeModel& sizes) const {
  size_t chosen = 0;
  while (chosen < rungs.size() &&
         sizes.bits(rungs[chosen], bearableQuantiser(options, rungs, chosen)) >
             videoAimBits(rungs[chosen], next.sound)) {
    ++chosen;
  }
  return chosen;
}

// From this one on, the first that is reckoned to stay within the limit at all; the ladder's end
// if none.
size_t FitPlan::possibleRung(size_t chosen) const {
  while (chosen < rungs.size() &&
         model.bits(rungs[chosen], coarsestQuantiser(options)) * kFloorMargin >
             videoAimBits(rungs[chosen], sound())) {
    ++chosen;
  }
  return chosen;
}

void FitPlan::sampled(const Sample& sample) {
  model.take(sample);
  size_t chosen = bearableRung(model);
  if (chosen == rungs.size()) chosen = possibleRung(0);
  beginPicture(std::min(chosen, rungs.size() - 1));
  // Rate control does not know what to do with bits that only key frames have a use for.
  if (!sample.isEven(limits.seconds) && !options.discardsOutput() && !isH264(options)) {
    tryQuantiser(videoAimBits(next.picture, next.sound));
  }
}

void FitPlan::continueFrom(const Rung& picture, const std::optional<Complexity>& passLog) {
  const auto same = std::find_if(rungs.begin(), rungs.end(),
                                 [&](const Rung& candidate) { return isSame(candidate, picture); });
  if (same == rungs.end() || next.kind != Kind::First) return;
  beginPicture(static_cast<size_t>(same - rungs.begin()));
  log = passLog;
  if (log) model.learn(*same, log->quantiser, log->bits());
  refine(videoAimBits(*same, next.sound));
}

bool FitPlan::isBetter(const Tried& one, const Tried& other) const {
  return pixelsPerSecond(one.attempt.picture) > pixelsPerSecond(other.attempt.picture) ||
         one.outcome.bytes > other.outcome.bytes ||
         (one.attempt.kind == Kind::Second && fills(one.outcome.bytes));
}

FitPlan::Verdict FitPlan::take(const Outcome& outcome) {
  tried.push_back({next, outcome});
  const Tried last = tried.back();
  const bool isWithin = fits(outcome);
  lastIsBest = isWithin && (!best || isBetter(last, *best));
  if (lastIsBest) best = last;
  switch (next.kind) {
    case Kind::First:
      return afterFirst(last, isWithin);
    case Kind::Second:
      return afterSecond(last, isWithin);
    case Kind::Constant:
      return afterConstant(last, isWithin);
    case Kind::Copy:
      if (!isWithin) beginEncode();
      return isWithin ? Verdict::Done : Verdict::Encode;
    default:
      return isWithin ? Verdict::Done : Verdict::Impossible;
  }
}

FitPlan::Verdict FitPlan::afterFirst(const Tried& last, bool isWithin) {
  if (last.outcome.end != End::Whole) {
    // Rate control may lose its way where a fixed quantiser, by the sample, does not.
    if (model.isKnown()) return tryQuantiser(videoAimBits(next.picture, next.sound));
    model.learn(next.picture, coarsestQuantiser(options), videoBitsOf(last));
    return tryBelow();
  }
  log = last.outcome.log;
  // The mean quantiser says little of a clip whose bits go into few frames.
  if (log && (log->isEven() || !model.isKnown())) {
    model.learn(next.picture, log->quantiser, videoBitsOf(last));
  }
  if (log && growsPicture(log->quantiser)) {
    beginPicture(rung);
    return Verdict::Encode;
  }
  const bool isFinest = log && log->quantiser <= kFinest;
  // The first pass of H.264 is made in haste.
  const bool isUneven = isH264(options) || (log && log->spread > kUneven);
  if (isWithin && (isFinest || (fills(last.outcome.bytes) && !isUneven))) return Verdict::Done;
  return refine(videoAimBits(next.picture, next.sound));
}

// Goes to a much larger picture, once, if what came of this one shows that it is bearable.
bool FitPlan::growsPicture(double quantiser) {
  if (hasGrown || (best && !isSame(best->attempt.picture, next.picture))) return false;
  // Far from what was measured a sample's curve is trusted no more than a plain power.
  SizeModel plain(limits.seconds);
  plain.learn(next.picture, quantiser, videoBitsOf(tried.back()));
  const size_t chosen = std::max(bearableRung(model), bearableRung(plain));
  if (chosen >= rung ||
      pixelsPerSecond(rungs[chosen]) < kWorthGrowing * pixelsPerSecond(rungs[rung])) {
    return false;
  }
  hasGrown = true;
  rung = chosen;
  return true;
}

// After a first pass: closer to these bits, in the same picture.
FitPlan::Verdict FitPlan::refine(double videoBits) {
  const bool isFine =
      !log || !model.isKnown() || isH264(options) ||
      (log->isEven() &&
       model.quantiserFor(next.picture, videoBits, coarsestQuantiser(options)) <= kFineQuantiser);
  if (hasQuantiser(options) && !isFine) return tryQuantiser(videoBits);
  double frames = std::max(1.0, next.picture.framesPerSecond * limits.seconds);
  if (log) frames = log->frames();
  // Without a log of ours only the outcome tells how the encoder follows its bitrate.
  const double scale = log || tried.empty() ? 1 : videoBits / videoBitsOf(tried.back());
  next = secondPass(next.picture, next.sound, videoBits * scale, frames, limits);
  return Verdict::Encode;
}

FitPlan::Verdict FitPlan::afterSecond(const Tried& last, bool isWithin) {
  const bool isWhole = last.outcome.end == End::Whole;
  const bool mayRepeat = made(Kind::Second) < kMostSeconds;
  if (isWithin && (fills(last.outcome.bytes) || !mayRepeat)) return Verdict::Done;
  const double aim = videoAimBits(next.picture, next.sound);
  const double miss = isWhole ? videoBitsOf(last) / aim : kAbortedBy;
  const bool isNear =
      isWhole && (isH264(options) || static_cast<double>(last.outcome.bytes) <
                                         kSecondMargin * static_cast<double>(limits.maxBytes));
  if (isNear && mayRepeat) {
    next.videoBitsPerSecond = std::llround(static_cast<double>(next.videoBitsPerSecond) / miss);
    next.toleranceBits = std::llround(static_cast<double>(next.toleranceBits) / miss);
    return Verdict::Encode;
  }
  if (last.attempt.isFloor() && growsPicture(next.quantiser)) {
    next.picture = rungs[rung];
    next.sound = sound();
  }
  return tryQuantiser(aim / miss);
}

FitPlan::Verdict FitPlan::afterConstant(const Tried& last, bool isWithin) {
  model.learn(next.picture, next.quantiser, videoBitsOf(last));
  if (isWithin && fills(last.outcome.bytes)) return Verdict::Done;
  if (!isWithin && last.attempt.isFloor()) return Verdict::Impossible;
  if (last.attempt.isFloor() && growsPicture(next.quantiser)) {
    next.picture = rungs[rung];
    next.sound = sound();
  }
  return tryQuantiser(videoAimBits(next.picture, next.sound));
}

FitPlan::Verdict FitPlan::tryQuantiser(double videoBits) {
  if (!hasQuantiser(options) || !model.isKnown()) return tryBelow();
  const int most = coarsestQuantiser(options);
  int quantiser = std::max(kFinestUseful, model.quantiserFor(next.picture, videoBits, most));
  for (const Tried& one : tried) {
    const bool isAlike =
        one.attempt.kind == Kind::Constant && isSame(one.attempt.picture, next.picture);
    if (isAlike && !fits(one.outcome)) quantiser = std::max(quantiser, one.attempt.quantiser + 1);
    if (isAlike && fits(one.outcome) && one.attempt.quantiser <= quantiser) return Verdict::Done;
  }
  if (quantiser > most || made(Kind::Constant) >= kMostQuantisers) return tryBelow();
  const bool isOfUse = !best || !isSame(best->attempt.picture, next.picture) ||
                       model.bits(next.picture, quantiser) > kGain * videoBitsOf(*best);
  if (!isOfUse) return Verdict::Done;
  next = constantQuantiser(next.picture, next.sound, quantiser, limits);
  return Verdict::Encode;
}

// A smaller picture, unless there is a file that fits.
FitPlan::Verdict FitPlan::tryBelow() {
  if (best) return Verdict::Done;
  const size_t chosen = model.isKnown() ? possibleRung(rung + 1) : rung + 1;
  if (chosen < rungs.size() && ++pictures < kMostPictures) {
    beginPicture(chosen);
  } else if (hasQuantiser(options)) {
    rung = rungs.size() - 1;
    next =
        coarsest(rungs[rung], soundWithin(0, options, facts, limits), coarsestQuantiser(options));
  } else {
    return Verdict::Impossible;
  }
  return Verdict::Encode;
}
