// Feeds any command line, its words parted by NUL, to the parser of options.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/ffmpeg/request/options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<const char*> words = {"ffmpeg"};
  for (size_t at = 0; at < text.size(); at = text.find('\0', at) + 1) {
    words.push_back(text.c_str() + at);
    if (text.find('\0', at) == std::string::npos) break;
  }
  Options options;
  std::string error;
  if (!parseOptions(static_cast<int>(words.size()), words.data(), &options, &error)) {
    if (error.empty()) abort();
    return 0;
  }
  if (options.input.empty() || (!options.isProbe() && options.format.empty())) abort();
  if (options.startOffsetMs() < 0 || options.clipLengthMs() < 0) abort();
  return 0;
}
