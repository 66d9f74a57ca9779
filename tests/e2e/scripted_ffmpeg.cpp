#include "tests/e2e/scripted_ffmpeg.h"

ScriptedFfmpeg::ScriptedFfmpeg(const std::string& encode, const std::string& length)
    : FakeFfmpeg(
          "input=$2\n"
          "if [ $# = 2 ]; then\n"
          "echo \"Duration: $(" +
          length +
          "), start: 0.000000, bitrate: 1 kb/s\" >&2\n"
          "echo 'Stream #0.0: Video: mpeg4, 1 kb/s, 25 fps, 25 tbr' >&2\n"
          "exit 1\n"
          "fi\n"
          "for output; do :; done\n" +
          encode) {}

std::string ScriptedFfmpeg::daemon(int tickMs) const {
  return "/usr/bin/env TEST_TICK_MS=" + std::to_string(tickMs) +
         " TEST_FFMPEG_FOLDER=" + here().path() + " " + SHORT_TICK_DAEMON;
}
