#include "fit/search/budget_search.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

// Where the best picture usually lies, and what it takes there, of 30 photos and budgets: the more
// bytes there are the finer it is.
constexpr double kUsualBudget = 300000;
constexpr double kFewBytes = 200000;
constexpr double kLikelyCoarseness = 0.45;
constexpr double kLikelyBytesPerPixel = 0.16;
constexpr double kFinerWithBytes = 0.35;
// How 1 - similarity falls when the bytes of a picture of the same scale grow.
constexpr double kLossPower = 0.6;
// From one scale to the next that is tried.
constexpr double kStep = 1.22;
// Near enough to the budget to be judged: what it would be there is then told well.
constexpr double kNear = 1.12;
// Of the budget: a little less is no loss, a little more is one.
constexpr double kAim = 0.988;
constexpr double kAimOfFew = 0.995;
// The next try where a format has too few steps to come nearer.
constexpr double kCoarser = 1.1;
constexpr int kFillRounds = 8;
// How much more a picture may seem to have than it has when it is finished.
constexpr double kAbout = 1.003;
// As good; of two such pictures the larger is taken.
constexpr double kAsGood = 0.0001;

// What a search takes from each of its parts on, of 90 photos and budgets.
constexpr SearchRest kFromStart = {6.8, 4.2, 1.8};
constexpr SearchRest kFromStartAtMost = {5.8, 3.4, 1.8};  // there is no larger picture to try
constexpr SearchRest kFromClimb = {4.7, 3.2, 1.8};
constexpr SearchRest kFromStep = {4.0, 2.4, 1.8};
constexpr SearchRest kFromFill = {2.4, 1, 1.8};
constexpr double kEncodesWhenFilling = 0.8;  // one does not always end it
constexpr double kFinishesWhenFilling = 1.4;
constexpr double kEncodesBehindFinish = 0.6;
constexpr double kFinishesBehindFinish = 0.5;

double atBudget(double similarity, int64_t bytes, int64_t budgetBytes) {
  const double share = static_cast<double>(bytes) / static_cast<double>(budgetBytes);
  return 1 - (1 - similarity) * std::pow(share, kLossPower);
}

}  // namespace

double BudgetSearch::clampScale(double scale) const {
  return std::clamp(scale, limits.leastScale, limits.mostScale);
}

bool BudgetSearch::encode(double scale, double coarseness) {
  if (isBroken || encodes() >= kMostEncodes) return false;
  Trial trial = {.scale = scale, .coarseness = codec->nearest(coarseness)};
  isBroken = !codec->encode(scale, trial.coarseness, &trial.bytes);
  if (isBroken) return false;
  if (!trials.empty()) learn(trial);
  trials.push_back(trial);
  expectAfterEncode();
  return true;
}

void BudgetSearch::expectAfterEncode() {
  rest.encodes = std::max(rest.encodes - 1, isFilling ? kEncodesWhenFilling : kFromFill.encodes);
  if (isFilling) rest.finishes = kFinishesWhenFilling;
  codec->expect(rest);
}

bool BudgetSearch::judgeLast() {
  Trial& trial = trials.back();
  isBroken = isBroken || !codec->judge(&trial.similarity);
  if (isBroken) return false;
  trial.atBudget = atBudget(trial.similarity, trial.bytes, limits.budgetBytes);
  rest.judgements = std::max(rest.judgements - 1, 1.0);
  codec->expect(rest);
  return true;
}

bool BudgetSearch::hasFew() const {
  return static_cast<double>(limits.budgetBytes) < kFewBytes;
}

double BudgetSearch::aimedBytes() const {
  return (hasFew() ? kAimOfFew : kAim) * static_cast<double>(limits.budgetBytes);
}

// By a size that is known about.
bool BudgetSearch::isLikelyWithin(const Trial& trial) const {
  return static_cast<double>(trial.bytes) <= kAbout * static_cast<double>(limits.budgetBytes);
}

// What was estimated of the others was wrong by the same factor.
bool BudgetSearch::finishLast() {
  Trial& last = trials.back();
  const int64_t estimate = last.bytes;
  isBroken = isBroken || !codec->finish(&last.bytes);
  if (isBroken) return false;
  last.isFinished = true;
  const double factor = static_cast<double>(last.bytes) / static_cast<double>(estimate);
  for (Trial& trial : trials) {
    if (trial.isFinished) continue;
    trial.bytes = std::lround(static_cast<double>(trial.bytes) * factor);
  }
  smallest = smallest == 0 ? last.bytes : std::min(smallest, last.bytes);
  rest = {kEncodesBehindFinish, 1, kFinishesBehindFinish};
  codec->expect(rest);
  return true;
}

// Finishes the last trial and keeps it where it is within the budget and fuller.
bool BudgetSearch::keepLast() {
  if (!finishLast() || trials.back().bytes > limits.budgetBytes) return false;
  if (trials.back().bytes <= best.bytes) return true;
  best = trials.back();
  codec->keep();
  return true;
}

// The trial that tells most about another one.
const BudgetSearch::Trial& BudgetSearch::nearestTo(double scale, double coarseness) const {
  const auto distance = [&](const Trial& trial) {
    return 2 * std::abs(std::log(trial.scale / scale)) +
           std::abs(std::log(trial.coarseness / coarseness));
  };
  return *std::min_element(trials.begin(), trials.end(), [&](const Trial& a, const Trial& b) {
    return distance(a) < distance(b);
  });
}

// The logarithm of the bytes.
double BudgetSearch::predict(const Trial& from, double scale, double coarseness) const {
  return std::log(static_cast<double>(from.bytes)) + 2 * pixelPower * std::log(scale / from.scale) -
         coarsenessPower * std::log(coarseness / from.coarseness);
}

// Turns both powers as little as explains the trial (normalised least mean squares).
void BudgetSearch::learn(const Trial& trial) {
  const Trial& near = nearestTo(trial.scale, trial.coarseness);
  const double x = 2 * std::log(trial.scale / near.scale);
  const double y = -std::log(trial.coarseness / near.coarseness);
  const double miss =
      std::log(static_cast<double>(trial.bytes)) - predict(near, trial.scale, trial.coarseness);
  const double rate = 1 / (x * x + y * y + 0.02);
  pixelPower = std::clamp(pixelPower + rate * miss * x, 0.5, 1.1);
  coarsenessPower = std::clamp(coarsenessPower + rate * miss * y, 0.3, 1.1);
}

// What meets the budget at that scale.
double BudgetSearch::coarsenessFor(double scale) const {
  const double wanted = std::log(aimedBytes());
  double coarseness = trials.back().coarseness;
  for (int round = 0; round < 2; ++round) {
    const Trial& near = nearestTo(scale, coarseness);
    const double share = predict(near, scale, near.coarseness) - wanted;
    coarseness = near.coarseness * std::exp(share / coarsenessPower);
  }
  return std::clamp(coarseness, limits.finest, limits.coarsest);
}

// The scale at which the last trial's picture would meet the budget so coarsely.
double BudgetSearch::scaleFor(double coarseness) const {
  const Trial& last = trials.back();
  const double bytes = predict(last, last.scale, coarseness);
  const double share = std::log(aimedBytes()) - bytes;
  return clampScale(last.scale * std::exp(0.5 * share / pixelPower));
}

bool BudgetSearch::tryScale(double scale, Trial* trial) {
  for (int round = 0; round < 3; ++round) {
    if (!encode(scale, coarsenessFor(scale))) return false;
    const double share =
        static_cast<double>(trials.back().bytes) / static_cast<double>(limits.budgetBytes);
    const double coarseness = trials.back().coarseness;
    // At an end of the range it is what it is; too large is no candidate.
    if (coarseness <= limits.finest && share < 1) break;
    if (coarseness >= limits.coarsest && share > 1) return false;
    if (share < kNear && share > 1 / kNear) break;
    if (codec->nearest(coarsenessFor(scale)) == coarseness) break;  // the format has no nearer one
  }
  if (!judgeLast()) return false;
  *trial = trials.back();
  const bool isWithin = trial->bytes <= limits.budgetBytes;
  if (isWithin && trial->coarseness <= limits.finest) trial->atBudget = trial->similarity;
  return true;
}

double BudgetSearch::likelyCoarseness() const {
  const double share = static_cast<double>(limits.budgetBytes) / kUsualBudget;
  const double likely = kLikelyCoarseness * std::pow(share, -kFinerWithBytes);
  return std::clamp(likely, limits.finest, limits.coarsest);
}

bool BudgetSearch::findStart() {
  const auto budget = static_cast<double>(limits.budgetBytes);
  const double bytesPerPixel =
      kLikelyBytesPerPixel * std::pow(budget / kUsualBudget, kFinerWithBytes);
  const double pixels = budget / bytesPerPixel;
  const double scale = clampScale(std::sqrt(pixels / limits.pixels));
  rest = scale < limits.mostScale ? kFromStart : kFromStartAtMost;
  return encode(scale, likelyCoarseness());
}

BudgetSearch::Trial BudgetSearch::climb(Trial start) {
  Trial top = start;
  rest = start.scale < limits.mostScale ? kFromClimb : kFromStep;
  for (const double step : {kStep, 1 / kStep}) {
    for (;;) {
      const double scale = clampScale(top.scale * step);
      Trial next;
      if (scale == top.scale || !tryScale(scale, &next)) break;
      rest = kFromStep;
      const double margin = step > 1 ? -kAsGood : kAsGood;
      if (next.atBudget <= top.atBudget + margin) break;
      top = next;
    }
    if (top.scale > start.scale) break;  // the other side is known to be lower
  }
  return top;
}

// Meets the budget closely: a secant between two trials of this scale that bracket it.
void BudgetSearch::fill(double scale) {
  const auto budget = static_cast<double>(limits.budgetBytes);
  rest = kFromFill;
  isFilling = true;
  for (int round = 1; round <= kFillRounds; ++round) {
    const Trial& last = trials.back();
    const auto bytes = static_cast<double>(last.bytes);
    const bool isFullEnough = bytes >= fullEnough() * budget || last.coarseness <= limits.finest;
    if (last.scale == scale && !last.isFinished && isFullEnough && isLikelyWithin(last)) keepLast();
    if (static_cast<double>(best.bytes) >= fullEnough() * budget) return;
    if (best.bytes > 0 && best.coarseness <= limits.finest) return;

    std::optional<Trial> under;
    std::optional<Trial> over;
    for (const Trial& trial : trials) {
      if (trial.scale != scale) continue;
      if (trial.bytes <= limits.budgetBytes) {
        if (!under || trial.bytes > under->bytes) under = trial;
      } else if (!over || trial.bytes < over->bytes) {
        over = trial;
      }
    }
    double coarseness = coarsenessFor(scale);
    bool isLastTry = round == kFillRounds;
    if (under && over) {
      const double low = std::log(static_cast<double>(under->bytes));
      const double high = std::log(static_cast<double>(over->bytes));
      const double share = (std::log(aimedBytes()) - low) / (high - low);
      coarseness = codec->nearest(under->coarseness * std::pow(over->coarseness / under->coarseness,
                                                               std::clamp(share, 0.05, 0.95)));
      // No table lies between.
      isLastTry |= under->coarseness / over->coarseness < 1.002 || coarseness == over->coarseness;
    } else if (over && codec->nearest(coarseness) <= over->coarseness) {
      if (over->coarseness >= limits.coarsest) return;
      coarseness = std::min(over->coarseness * kCoarser, limits.coarsest);
    }
    if (under && (isLastTry || codec->nearest(coarseness) == under->coarseness)) {
      isLastTry = true;
      coarseness = under->coarseness;
      if (best.scale == scale && best.coarseness == coarseness) return;
    }
    if (trials.back().scale != scale || trials.back().coarseness != coarseness) {
      if (!encode(scale, coarseness)) return;
    }
    if (isLastTry) {
      keepLast();
      return;
    }
  }
}

// Nothing is small enough yet: the coarsest of ever smaller pictures.
bool BudgetSearch::shrinkToFit() {
  while (!isBroken) {
    const double scale = std::min(scaleFor(limits.coarsest), trials.back().scale * 0.8);
    const double before = trials.back().scale;
    if (!encode(clampScale(scale), limits.coarsest)) return false;
    const bool isLast = before <= limits.leastScale;
    if (((isLast || isLikelyWithin(trials.back())) && keepLast()) || isLast) break;
  }
  return best.bytes != 0;
}

bool BudgetSearch::run() {
  if (!findStart()) return false;
  const double share =
      static_cast<double>(trials[0].bytes) / static_cast<double>(limits.budgetBytes);
  const double start =
      share < kNear && share > 1 / kNear ? trials[0].scale : scaleFor(likelyCoarseness());
  Trial first;
  if (tryScale(start, &first)) {
    double scale = climb(first).scale;
    fill(scale);
    // What was told of the size there may have been too little.
    while (best.bytes == 0 && !isBroken && scale > limits.leastScale &&
           encodes() < kMostEncodes * 5 / 8) {
      scale = clampScale(scale / kStep);
      fill(scale);
    }
  }
  if (isBroken || (best.bytes == 0 && !shrinkToFit())) return false;
  return codec->judgeKept(&keptSimilarity);
}
