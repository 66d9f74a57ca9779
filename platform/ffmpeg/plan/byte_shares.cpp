#include "platform/ffmpeg/plan/byte_shares.h"

#include <algorithm>

namespace {

constexpr double kSoundShare = 0.4;  // at most, of a file with pictures
// Of a bitrate that nobody asked for: a part of that share, within these bits per second.
constexpr double kUnaskedPart = 0.5;
constexpr int64_t kLeastUnasked = 40'000;
constexpr int64_t kMostUnasked = 128'000;
// Containers: a fixed part, and the entries of one sample in the index.
constexpr double kHeadBytes = 1500;
constexpr double kSampleBytes = 11;

}  // namespace

SoundChoice soundWithin(int64_t bytes, const Options& options, const MediaFacts& facts,
                        const Budget& budget) {
  if (facts.audio.empty() || options.noAudio || options.copiesAudio()) return {};
  int64_t bits = options.audioBitsPerSecond();
  if (budget.maxBytes > 0 && budget.seconds > 0) {
    const double share = facts.video ? kSoundShare : 1;
    const auto most = static_cast<int64_t>(static_cast<double>(bytes) * 8 * share /
                                           std::max(budget.seconds, 1.0));
    if (bits == 0 && facts.video) {
      bits = std::clamp(static_cast<int64_t>(static_cast<double>(most) * kUnaskedPart),
                        kLeastUnasked, kMostUnasked);
    }
    bits = bits > 0 ? std::min(bits, most) : most;
  }
  if (bits > 0 || budget.maxBytes > 0) return chooseSound(options, facts.audio[0], bits);
  const bool isSurround = options.channels == 0 && facts.audio[0].channels > 2;
  return {0, options.sampleRateHz, isSurround ? 2 : options.channels};
}

double bytesBeside(const Rung& picture, const SoundChoice& sound, const Options& options,
                   const MediaFacts& facts, double seconds) {
  const double container = kHeadBytes + kSampleBytes * picture.framesPerSecond * seconds;
  if (facts.audio.empty() || options.noAudio) return container;
  const int64_t bits = options.copiesAudio() ? facts.audio[0].bitsPerSecond : sound.bitsPerSecond;
  return container + static_cast<double>(bits) * seconds / 8 +
         kSampleBytes * seconds / packetSeconds(options, sound, facts.audio[0]);
}
