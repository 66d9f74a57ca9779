// What the plan has to know of an encoder of pictures.
//
// All quantisers are on one scale, MPEG-4's: its quantiser q divides by 2q. H.264's QP, whose step
// doubles with every 6, is told by the q of the same step: 28 is 8, and 51, its coarsest, 113.
#ifndef PLATFORM_FFMPEG_PLAN_VIDEO_CODER_H
#define PLATFORM_FFMPEG_PLAN_VIDEO_CODER_H

#include "platform/ffmpeg/request/options.h"

// Whether the encoder that the options name takes a fixed quantiser, and leaves a log of its first
// pass that says which it took.
bool hasQuantiser(const Options& options);
bool isH264(const Options& options);

// The coarsest there is.
int coarsestQuantiser(const Options& options);

// The longest side that it makes: H.264's encoder holds some twenty pictures, and receivers make
// larger ones smaller. 0: any.
int longestSide(const Options& options);
// The most pixels that a sample takes, which has four encoders at once.
double mostSampledPixels(const Options& options);

double quantiserOfQp(double qp);
// As whole as the encoder takes it.
int qpOfQuantiser(double quantiser);

#endif
