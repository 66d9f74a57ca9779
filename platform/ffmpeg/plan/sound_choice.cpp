#include "platform/ffmpeg/plan/sound_choice.h"

#include <algorithm>
#include <array>

namespace {

constexpr char kAmr[] = "libopencore_amrnb";
constexpr std::array<int64_t, 8> kAmrModes = {12200, 10200, 7950, 7400, 6700, 5900, 5150, 4750};

// What libavcodec's AAC encoder writes at the very least, measured, and from which bitrate on the
// form sounds better than the one below it.
struct AacForm {
  int sampleRateHz;
  int channels;
  int64_t floorBits;
  int64_t worthBits;
};
constexpr std::array<AacForm, 5> kAacForms = {{{44100, 2, 23500, 40000},
                                               {44100, 1, 16500, 26000},
                                               {22050, 1, 10500, 13500},
                                               {16000, 1, 8200, 9500},
                                               {8000, 1, 6600, 0}}};

bool isAac(const Options& options) {
  return options.audioCodec == "libfaac" || options.audioCodec == "aac" ||
         options.audioCodec.empty();
}

SoundChoice amrSound(int64_t bitsPerSecond) {
  const auto mode = std::find_if(kAmrModes.begin(), kAmrModes.end(),
                                 [&](int64_t bits) { return bits <= bitsPerSecond; });
  return {mode != kAmrModes.end() ? *mode : kAmrModes.back(), 8000, 1};
}

// The rate and channels of a form, as far as the request and the source allow them.
SoundChoice formed(const AacForm& form, const Options& options, const AudioFacts& source) {
  SoundChoice sound;
  const bool isFull = &form == &kAacForms.front() || form.sampleRateHz >= source.sampleRateHz;
  sound.sampleRateHz = isFull ? 0 : form.sampleRateHz;
  if (options.sampleRateHz > 0) sound.sampleRateHz = options.sampleRateHz;
  if (source.channels > form.channels) sound.channels = form.channels;
  if (options.channels > 0) sound.channels = options.channels;
  return sound;
}

int64_t floorOf(const AacForm& form, const SoundChoice& sound, const AudioFacts& source) {
  const int rate = sound.sampleRateHz > 0 ? sound.sampleRateHz : source.sampleRateHz;
  if (rate == form.sampleRateHz || rate <= 0) return form.floorBits;
  // What is asked for or comes with the source lies between the measured ones: the next above.
  int64_t bits = form.floorBits;
  for (const AacForm& other : kAacForms) {
    if (other.channels == 1 && other.sampleRateHz >= rate) bits = other.floorBits;
  }
  if (rate > 44100) bits = form.floorBits * rate / 44100;
  const int channels = sound.channels > 0 ? sound.channels : source.channels;
  return channels >= 2 && bits < 23500 ? bits * 3 / 2 : bits;
}

SoundChoice aacSound(const Options& options, const AudioFacts& source, int64_t bitsPerSecond) {
  const auto form = std::find_if(kAacForms.begin(), kAacForms.end(),
                                 [&](const AacForm& f) { return f.worthBits <= bitsPerSecond; });
  SoundChoice sound = formed(*form, options, source);
  sound.bitsPerSecond = std::max(bitsPerSecond, floorOf(*form, sound, source));
  return sound;
}

}  // namespace

SoundChoice chooseSound(const Options& options, const AudioFacts& source, int64_t bitsPerSecond) {
  if (options.audioCodec == kAmr) return amrSound(bitsPerSecond);
  if (isAac(options)) return aacSound(options, source, bitsPerSecond);
  return {bitsPerSecond, options.sampleRateHz,
          options.channels > 0 ? options.channels : (source.channels > 2 ? 2 : 0)};
}

double packetSeconds(const Options& options, const SoundChoice& sound, const AudioFacts& source) {
  if (options.audioCodec == kAmr) return 0.02;
  const int rate = sound.sampleRateHz > 0 ? sound.sampleRateHz : source.sampleRateHz;
  return 1024.0 / std::max(rate, 8000);
}
