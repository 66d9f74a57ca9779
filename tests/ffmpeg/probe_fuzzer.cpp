// Feeds any bytes to the probe as a file, in this process: a cage would hide what it does wrong.
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/ffmpeg/probe/facts_text.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/media_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("movie", MFD_CLOEXEC);
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();
  lseek(fd, 0, SEEK_SET);
  MediaInput input;
  std::string error;
  const ReadLimits limits = {std::chrono::milliseconds(1000), CLOCK_MONOTONIC, int64_t{1} << 20};
  if (!input.open(fd, "movie", limits, &error)) return 0;
  MediaFacts facts;
  readMediaFacts(input, "movie", &facts);
  if (!unpackFacts(packFacts(facts), &facts)) abort();
  return 0;
}
