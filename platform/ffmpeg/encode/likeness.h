// How alike a movie looks to what it was made of: the command line that compares a part of both,
// and what it tells.
#ifndef PLATFORM_FFMPEG_ENCODE_LIKENESS_H
#define PLATFORM_FFMPEG_ENCODE_LIKENESS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ffmpeg/encode/command_line.h"

// One run that shows the part of the input and of `made`, an encode of it in `picture`, as a viewer
// sees them, in the input's size or with a longest side of 1280 pixels. Of the paths the program's
// alone is of use.
std::vector<std::string> likenessLine(const Options& options, const MediaFacts& facts,
                                      const SamplePart& part, const std::string& made,
                                      const Rung& picture, const EncodePaths& paths);

// The parts to compare, in the order of their worth; the first is in the middle.
std::vector<SamplePart> likenessParts(double clipSeconds, bool canJump);

// The mean SSIM of luma, by the lines that such a run leaves. Nothing where there is none.
std::optional<double> parseLikeness(std::string_view words);

#endif
