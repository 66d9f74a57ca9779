// The way to a whole clip within its budget: which encode comes next, by what the last ones gave.
#ifndef PLATFORM_FFMPEG_PLAN_FIT_PLAN_H
#define PLATFORM_FFMPEG_PLAN_FIT_PLAN_H

#include <optional>
#include <vector>

#include "platform/ffmpeg/plan/attempt.h"
#include "platform/ffmpeg/plan/budget.h"
#include "platform/ffmpeg/plan/sample.h"
#include "platform/ffmpeg/plan/size_model.h"
#include "platform/ffmpeg/plan/video_coder.h"

// Runs nothing itself: whoever owns an encoder makes the attempt() and tells the plan its outcome
// with take(), until the verdict is another than Encode.
//
// A first pass at the bitrate that the budget allows, in the largest picture whose quantiser stays
// bearable there, often fits. Where its log shows room for a much larger picture, that one gets a
// first pass too. Then comes a second pass over the log where the quantiser is fine, and a fixed
// quantiser, which always ends where it must, where it is coarse; then smaller pictures. The
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
  // After Done: what made the file that is kept.
  const Attempt& kept() const { return best->attempt; }
  // After Impossible: what a whole clip was found to need. What to ask for is askFor() of it.
  int64_t smallestBytes() const { return tried.back().outcome.bytes; }

  // How many further encodes are likely, should the present one end with `bytes`.
  double encodesAfter(double bytes) const;
  // The same while nothing is known of it.
  double encodesAfterUnknown() const;

 private:
  struct Tried {
    Attempt attempt;
    Outcome outcome;
  };

  void beginEncode();
  void beginPicture(size_t chosen);
  size_t bearableRung(const SizeModel& sizes) const;
  size_t possibleRung(size_t chosen) const;

  bool fits(const Outcome& outcome) const;
  bool fills(int64_t bytes) const;
  SoundChoice sound() const;
  double besideBytes(const Rung& picture, const SoundChoice& sound) const;
  double videoAimBits(const Rung& picture, const SoundChoice& sound) const;
  double videoBitsOf(const Tried& one) const;
  int made(Attempt::Kind kind) const;

  bool isBetter(const Tried& one, const Tried& other) const;
  Verdict afterFirst(const Tried& last, bool isWithin);
  Verdict afterSecond(const Tried& last, bool isWithin);
  Verdict afterConstant(const Tried& last, bool isWithin);
  bool growsPicture(double quantiser);
  Verdict refine(double videoBits);
  Verdict tryQuantiser(double videoBits);
  Verdict tryBelow();

  Options options;
  MediaFacts facts;
  Budget limits;
  std::vector<Rung> rungs;  // empty when no pictures are encoded
  size_t rung = 0;
  Attempt next;
  std::vector<Tried> tried;
  std::optional<Complexity> log;  // of the first pass in the present picture
  SizeModel model;
  std::optional<Tried> best;  // the file to keep
  bool lastIsBest = false;
  bool hasGrown = false;
  int pictures = 0;  // that were given up
};

#endif
