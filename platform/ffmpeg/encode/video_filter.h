// The picture's way to its size: what "-s", H.263's five sizes and odd sizes ask for.
#ifndef PLATFORM_FFMPEG_ENCODE_VIDEO_FILTER_H
#define PLATFORM_FFMPEG_ENCODE_VIDEO_FILTER_H

#include <string>

struct Options;
struct VideoFacts;

// The filter chain for today's "-vf"; empty when the picture passes as it is. The encoder has
// already turned rotated clips upright when it applies.
std::string videoFilter(const Options& options, const VideoFacts& video);

#endif
