#include "platform/ffmpeg/files/sha256.h"

#include <array>
#include <cstdint>
#include <memory>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/sha.h>
}

std::string sha256Hex(const std::string& text) {
  const std::unique_ptr<AVSHA, void (*)(void*)> sha(av_sha_alloc(), av_free);
  std::array<uint8_t, 32> digest{};
  av_sha_init(sha.get(), 256);
  av_sha_update(sha.get(), reinterpret_cast<const uint8_t*>(text.data()), text.size());
  av_sha_final(sha.get(), digest.data());
  std::string hex;
  for (const uint8_t byte : digest) {
    constexpr char digits[] = "0123456789abcdef";
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}
