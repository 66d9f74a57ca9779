// Who gets what of a file's bytes: the container, the sound, and the pictures the rest.
#ifndef PLATFORM_FFMPEG_PLAN_BYTE_SHARES_H
#define PLATFORM_FFMPEG_PLAN_BYTE_SHARES_H

#include <cstdint>

#include "platform/ffmpeg/plan/budget.h"
#include "platform/ffmpeg/plan/picture_ladder.h"
#include "platform/ffmpeg/plan/sound_choice.h"

// The best sound for a file of `bytes`: as asked for, but no more than its share of a limit.
SoundChoice soundWithin(int64_t bytes, const Options& options, const MediaFacts& facts,
                        const Budget& budget);

// The bytes beside the pictures, reckoned.
double bytesBeside(const Rung& picture, const SoundChoice& sound, const Options& options,
                   const MediaFacts& facts, double seconds);

#endif
