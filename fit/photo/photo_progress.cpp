#include "fit/photo/photo_progress.h"

#include <algorithm>
#include <utility>

namespace {

// Nanoseconds a pixel, on the machine where they were measured; only their ratio matters.
constexpr double kDecode = 6;
constexpr double kEncode = 16;  // with scaling
constexpr double kRead = 6;     // back, to be judged
constexpr double kJudge = 13;   // of the pixels at which pictures are compared
// What a search usually takes.
constexpr double kPixelsPerByte = 6;
constexpr double kEncodes = 6.5;
constexpr double kJudgements = 4.5;
// Of what is left, a step at least gets this far short of the end.
constexpr double kNearlyAll = 0.97;

}  // namespace

PhotoProgress::PhotoProgress(double sourcePixels, double comparedPixels, double maxBytes,
                             std::function<void(double)> progressListener)
    : decodeWork(sourcePixels * kDecode),
      compareWork(comparedPixels * kJudge),
      encodeWork(std::min(sourcePixels, maxBytes * kPixelsPerByte) *
                     (kEncodes * kEncode + kJudgements * kRead) +
                 kJudgements * compareWork),
      listener(std::move(progressListener)) {}

void PhotoProgress::tell(double share) {
  if (share < told + 0.01) return;
  told = share;
  if (listener) listener(told);
}

void PhotoProgress::decoded(double share) {
  tell(share * decodeWork / (decodeWork + encodeWork));
}

void PhotoProgress::encoded(double pixels) {
  encodedWork += pixels * kEncode;
  tell(std::min(kNearlyAll, (decodeWork + encodedWork) / (decodeWork + encodeWork)));
}

void PhotoProgress::judged(double pixels) {
  encodedWork += pixels * kRead + compareWork;
  tell(std::min(kNearlyAll, (decodeWork + encodedWork) / (decodeWork + encodeWork)));
}
