#include "platform/ffmpeg/encode/output_check.h"

#include <algorithm>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"

namespace {

// The encoder's account and the container's may differ by a few frames of either stream.
int64_t writtenSlackMs(int64_t lengthMs) {
  return std::max<int64_t>(1000, lengthMs / 20);
}

// Declared lengths are often a little off; a file cut short is off by more.
int64_t clipSlackMs(int64_t lengthMs) {
  return std::max<int64_t>(1000, lengthMs / 10);
}

std::string seconds(int64_t milliseconds) {
  const int64_t tenths = milliseconds / 100;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

}  // namespace

bool checkOutput(const std::string& path, const ExpectedOutput& expected, std::string* error) {
  MediaFacts facts;
  std::string reason;
  if (!probeMovie(path, kThoroughProbe, &facts, &reason)) {
    *error = "nothing could be encoded: the result is no movie file";
    return false;
  }
  if (expected.video && (!facts.video || facts.video->width == 0)) {
    *error = "the result has no pictures";
    return false;
  }
  if (expected.audio && facts.audio.empty()) {
    *error = "the result has no sound";
    return false;
  }
  const int64_t lengthMs = facts.durationUs / 1000;
  if (lengthMs + writtenSlackMs(expected.writtenMs) < expected.writtenMs) {
    *error = "the result holds " + seconds(lengthMs) + " of the " + seconds(expected.writtenMs) +
             " that were written";
    return false;
  }
  if (lengthMs + clipSlackMs(expected.clipMs) < expected.clipMs) {
    *error = "only " + seconds(lengthMs) + " of " + seconds(expected.clipMs) +
             " could be read: the input is damaged or cut short";
    return false;
  }
  return true;
}
