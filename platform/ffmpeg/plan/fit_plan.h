// The way to a whole clip within its budget: which encode comes next, by what the last ones gave.
#ifndef PLATFORM_FFMPEG_PLAN_FIT_PLAN_H
#define PLATFORM_FFMPEG_PLAN_FIT_PLAN_H

#include <array>
#include <optional>
#include <vector>

#include "platform/ffmpeg/plan/attempt.h"
#include "platform/ffmpeg/plan/budget.h"
#include "platform/ffmpeg/plan/sample.h"

// Runs nothing itself: whoever owns an encoder makes the attempt() and tells the plan its outcome
// with take(), until the verdict is another than Encode.
//
// A first pass at the bitrate that the budget allows, in the largest picture whose quantiser stays
// bearable there, often fits. A second pass over its log, scaled by what the first one gave, comes
// next; then fixed quantisers, which always end where they must, and smaller pictures. The
// coarsest encode of the last rung settles whether the clip can be had at all.
class FitPlan {
 public:
  FitPlan(const Options& options, const MediaFacts& facts);

  const Budget& budget() const { return limits; }

  // Whether a sample would choose the picture better than the bits per pixel do.
  bool wantsSample() const;
  const std::vector<Rung>& ladder() const { return rungs; }
  void sampled(const Sample& sample);

  // A first pass has been made already, in this picture.
  void continueFrom(const Rung& picture, const std::optional<Complexity>& log);

  enum class Verdict { Encode, Done, Impossible };
  const Attempt& attempt() const { return next; }
  Verdict take(const Outcome& outcome);
  // Whether the file of the outcome taken last is the best so far.
  bool keepsLast() const { return lastIsBest; }
  // The smallest file that a whole clip was found to need; what to ask for is askFor() of it.
  int64_t smallestBytes() const { return smallest; }

  // How many further encodes are likely, should the present one end with `bytes`.
  double encodesAfter(double bytes) const;

 private:
  bool fills(int64_t bytes) const;
  SoundChoice soundFor(int64_t maxBytes) const;
  double restBytes(const Rung& rung, const SoundChoice& sound) const;
  double videoAimBits(const Rung& rung) const;
  void planEncode();
  void planFirst();
  void planSecond(double bits);
  void planConstant(int quantiser);
  void planCoarsest();
  Verdict tryBelow(double excess);
  Verdict afterFirst(const Outcome& outcome, bool fits);
  Verdict afterSecond(const Outcome& outcome, bool fits);
  Verdict afterConstant(const Outcome& outcome, bool fits);
  int quantiserFor(double bytes) const;

  Options options;
  MediaFacts facts;
  Budget limits;
  std::vector<Rung> rungs;  // empty when no pictures are encoded
  size_t rung = 0;
  Attempt next;
  std::optional<Complexity> firstLog;
  double measuredRest = 0;  // bytes beside the pictures, of the last whole encode
  double lastQuantiser = 0;
  int64_t bestBytes = 0;
  int64_t smallest = 0;
  bool lastIsBest = false;
  int seconds = 0;  // second passes over the present log
  int constants = 0;
  int stepsDown = 0;
  bool isCoarsest = false;
};

// What the encoder that the options name can do.
bool keepsPassLog(const Options& options);
bool hasQuantiser(const Options& options);

#endif
