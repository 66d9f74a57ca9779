#include "fit/photo/photo_progress.h"

#include <time.h>

#include <algorithm>
#include <utility>

namespace {

// Nanoseconds a pixel, on the machine where they were measured; only their ratio matters.
constexpr double kDecode = 4;
constexpr double kCompareAll = 40;
constexpr double kWholeSearchOfJpeg = 170;
constexpr double kWholeSearchOfWebp = 900;
constexpr double kWholeSearchOfAvif = 3300;
constexpr double kPixelsPerByte = 6;  // as large as a picture of so many bytes usually gets
// In encodes of the same picture, until one is timed.
constexpr double kJudgeOfJpeg = 0.3;
constexpr double kJudgeOfOther = 0.15;
constexpr double kFinishOfJpeg = 0.6;
// Of what is left, a step at least gets this far short of the end.
constexpr double kNearlyAll = 0.97;
constexpr double kWorthTelling = 0.01;

double searchCost(PhotoKind format) {
  if (format == PhotoKind::Webp) return kWholeSearchOfWebp;
  return format == PhotoKind::Avif ? kWholeSearchOfAvif : kWholeSearchOfJpeg;
}

double decodeShareOf(const PhotoProgress::Work& work) {
  const double decode = work.sourcePixels * kDecode;
  const double encoded = std::min(work.sourcePixels, work.maxBytes * kPixelsPerByte);
  const double search = encoded * searchCost(work.format) + work.comparedPixels * kCompareAll;
  return decode / (decode + search);
}

}  // namespace

PhotoProgress::PhotoProgress(const Work& work, std::function<void(double)> progressListener,
                             Clock workClock)
    : decodeShare(decodeShareOf(work)),
      judgeCost(work.format == PhotoKind::Jpeg ? kJudgeOfJpeg : kJudgeOfOther),
      finishCost(work.format == PhotoKind::Jpeg ? kFinishOfJpeg : 0),
      listener(std::move(progressListener)),
      clock(std::move(workClock)),
      stepBegan(clock()) {}

double PhotoProgress::processorSeconds() {
  timespec used = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

void PhotoProgress::tell(double share) {
  if (share < told + kWorthTelling) return;
  told = share;
  if (listener) listener(told);
}

void PhotoProgress::step(double amount, Pace* pace) {
  const double now = clock();
  pace->seconds += now - stepBegan;
  pace->amount += amount;
  stepBegan = now;
}

void PhotoProgress::decoded(double share) {
  tell(share * decodeShare);
  stepBegan = clock();
}

void PhotoProgress::encoded(double pixels) {
  step(pixels, &encodes);
}

void PhotoProgress::judged() {
  step(1, &judgements);
}

void PhotoProgress::finished(double pixels) {
  step(pixels, &finishes);
}

void PhotoProgress::expect(const SearchRest& rest, double pixels) {
  const double encode = encodes.each() * pixels;
  const double judgement = judgements.amount > 0 ? judgements.each() : judgeCost * encode;
  const double finish = finishes.amount > 0 ? finishes.each() * pixels : finishCost * encode;
  const double left = rest.encodes * encode + rest.judgements * judgement + rest.finishes * finish;
  tell(std::min(kNearlyAll, stepBegan / (stepBegan + left)));
}
