// The picture sizes and frame rates that a request leaves to choose from.
#ifndef PLATFORM_FFMPEG_PLAN_PICTURE_LADDER_H
#define PLATFORM_FFMPEG_PLAN_PICTURE_LADDER_H

#include <cstddef>
#include <vector>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/request/options.h"

struct Rung {
  PictureSize size;
  Ratio rate;                  // for the encoder; a clip of variable rate may have fewer frames
  double framesPerSecond = 0;  // what the clip will have on average

  double pixels() const { return static_cast<double>(size.width) * size.height; }
};

// The picture as a viewer sees it: upright, in square pixels, both sides even.
PictureSize seenSize(const VideoFacts& video);

// From the best rung down; never empty. What the request fixes is the same in all of them. First
// the size shrinks and then the rate: a held frame costs more of what a viewer sees than a
// smaller picture does.
std::vector<Rung> pictureLadder(const Options& options, const VideoFacts& video);

// The coarsest quantiser, 1 to 31, at which rung `chosen` still looks better than the next.
int bearableQuantiser(const Options& options, const std::vector<Rung>& rungs, size_t chosen);

// Whether the times of the frames are kept in this container, rather than made even.
bool keepsTimes(const Options& options);

#endif
