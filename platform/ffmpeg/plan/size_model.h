// What the pictures of a clip come to, in any size at any quantiser, by what was measured so far.
#ifndef PLATFORM_FFMPEG_PLAN_SIZE_MODEL_H
#define PLATFORM_FFMPEG_PLAN_SIZE_MODEL_H

#include <optional>

#include "platform/ffmpeg/plan/picture_ladder.h"
#include "platform/ffmpeg/plan/sample.h"

// A sample gives the shape of the curve, where there is one; the last encode of the whole clip
// moves it to where it belongs.
class SizeModel {
 public:
  explicit SizeModel(double seconds) : clipSeconds(seconds) {}

  void take(const Sample& sample);
  // The whole clip in this picture, at this quantiser on average, came to so many bits.
  void learn(const Rung& picture, double quantiser, double bits);
  bool isKnown() const { return factor > 0; }

  // Both only once something is known.
  double bits(const Rung& picture, double quantiser) const;
  // The finest that stays within `mostBits`; above `coarsest` where none does.
  int quantiserFor(const Rung& picture, double mostBits, int coarsest) const;

 private:
  double shape(const Rung& picture, double quantiser) const;

  double clipSeconds;
  std::optional<Sample> sampled;
  double factor = 0;  // of the shape
};

#endif
