#include "tests/e2e/scripted_ffmpeg.h"

#include <glib.h>
#include <sys/stat.h>

namespace {

const gint64 kDeadlineUs = 30 * G_USEC_PER_SEC;

}  // namespace

ScriptedFfmpeg::ScriptedFfmpeg(const std::string& encode, const std::string& length) {
  const std::string script = "#!/bin/sh\nhere='" + dir.path() +
                             "'\n"
                             "input=$2\n"
                             "if [ $# = 2 ]; then\n"
                             "echo \"Duration: $(" +
                             length +
                             "), start: 0.000000, bitrate: 1 kb/s\" >&2\n"
                             "echo 'Stream #0.0: Video: mpeg4, 1 kb/s, 25 fps, 25 tbr' >&2\n"
                             "exit 1\n"
                             "fi\n"
                             "for output; do :; done\n" +
                             encode + "\n";
  chmod(dir.write("ffmpeg", script).c_str(), 0700);
}

std::string ScriptedFfmpeg::daemon(int tickMs) const {
  return "/usr/bin/env TEST_TICK_MS=" + std::to_string(tickMs) +
         " TEST_FFMPEG_FOLDER=" + dir.path() + " " + SHORT_TICK_DAEMON;
}

bool waitUntil(const std::function<bool()>& condition) {
  const gint64 deadline = g_get_monotonic_time() + kDeadlineUs;
  while (!condition()) {
    if (g_get_monotonic_time() > deadline) return false;
    if (g_main_context_iteration(nullptr, FALSE) == FALSE) g_usleep(2000);
  }
  return true;
}
