// The sound that a bitrate is enough for: its sampling rate, its channels, its real bitrate.
#ifndef PLATFORM_FFMPEG_PLAN_SOUND_CHOICE_H
#define PLATFORM_FFMPEG_PLAN_SOUND_CHOICE_H

#include <cstdint>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/request/options.h"

struct SoundChoice {
  int64_t bitsPerSecond = 0;  // 0 leaves it to the encoder
  int sampleRateHz = 0;       // 0 keeps the source's
  int channels = 0;           // 0 keeps the source's
  bool operator==(const SoundChoice&) const = default;
};

// The best sound of the codec asked for in at most `bitsPerSecond`, or the least that the codec
// can do where that is above it. Never a higher rate or more channels than the source has, never
// more than two channels; a sampling rate or channels asked for are kept.
SoundChoice chooseSound(const Options& options, const AudioFacts& source, int64_t bitsPerSecond);

// What one packet of it lasts, in seconds: each costs some bytes in the container.
double packetSeconds(const Options& options, const SoundChoice& sound, const AudioFacts& source);

#endif
