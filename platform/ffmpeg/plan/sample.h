// What a short sample of a clip says of the whole: the size of an encode before it is made.
#ifndef PLATFORM_FFMPEG_PLAN_SAMPLE_H
#define PLATFORM_FFMPEG_PLAN_SAMPLE_H

#include <array>
#include <cstddef>
#include <vector>

#include "platform/ffmpeg/plan/complexity.h"
#include "platform/ffmpeg/plan/picture_ladder.h"

// Asked for; x264 makes of them what it likes, and tells.
constexpr std::array<int, 2> kSampleQuantisers = {8, 24};

// The parts of the clip to sample, in seconds from its beginning.
struct SamplePart {
  double start = 0;
  double seconds = 0;
};
std::vector<SamplePart> sampleParts(double clipSeconds, bool canJump);

// The two sizes to sample in: the ladder's first of at most so many pixels and one near a quarter
// of its pixels.
std::array<Rung, 2> sampleRungs(const std::vector<Rung>& ladder, double mostPixels);

// The sample: each of two sizes at each of two quantisers, all parts summed up. Between and beyond
// them the bits follow a power of the pixels and of the quantiser, and each clip has its own two.
class Sample {
 public:
  using PerQuantiser = std::array<Complexity, kSampleQuantisers.size()>;
  Sample(const std::array<Rung, 2>& rungs, const std::array<PerQuantiser, 2>& measured);

  // The bits of the pictures of the whole clip.
  double videoBits(const Rung& rung, double quantiser, double seconds) const;
  // Whether the bits are spread over many of the whole clip's frames.
  bool isEven(double seconds) const;

 private:
  double bitsAt(size_t size, const Rung& rung, double quantiser, double seconds) const;

  std::array<Rung, 2> rungs;
  std::array<PerQuantiser, 2> measured;
};

#endif
