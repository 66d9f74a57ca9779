// The picture's way to its size: upright, undistorted, in the colours that players expect.
#ifndef PLATFORM_FFMPEG_ENCODE_VIDEO_FILTER_H
#define PLATFORM_FFMPEG_ENCODE_VIDEO_FILTER_H

#include <string>

#include "platform/ffmpeg/request/options.h"

struct VideoFacts;

// The filter chain for ffmpeg's "-vf"; empty when the picture passes as it is. The encoder has
// already turned rotated clips upright when it applies. A size of another shape than the picture's
// is filled up with black. Without `mapsTones` a high dynamic range is cut off plainly.
std::string videoFilter(const Options& options, const VideoFacts& video, PictureSize size,
                        bool mapsTones);

#endif
