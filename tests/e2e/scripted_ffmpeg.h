// An `ffmpeg` for the daemon that does exactly what a test says.
#ifndef TESTS_E2E_SCRIPTED_FFMPEG_H
#define TESTS_E2E_SCRIPTED_FFMPEG_H

#include <string>

#include "tests/support/fake_ffmpeg.h"

class ScriptedFfmpeg : public FakeFfmpeg {
 public:
  // Every encode runs this shell text, with $input, $output and $here, a folder for its files.
  // Every probe finds pictures, and the length that the other text prints.
  explicit ScriptedFfmpeg(const std::string& encode,
                          const std::string& length = "echo 00:00:10.00");

  // The command of a daemon that runs it, with ticks that far apart.
  std::string daemon(int tickMs = 600000) const;
};

#endif
