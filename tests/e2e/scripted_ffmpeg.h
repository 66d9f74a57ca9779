// An `ffmpeg` for the daemon that does exactly what a test says.
#ifndef TESTS_E2E_SCRIPTED_FFMPEG_H
#define TESTS_E2E_SCRIPTED_FFMPEG_H

#include <functional>
#include <string>

#include "tests/support/temp_dir.h"

class ScriptedFfmpeg {
 public:
  // Every encode runs this shell text, with $input, $output and $here, a folder for its files.
  // Every probe finds pictures, and the length that the other text prints.
  explicit ScriptedFfmpeg(const std::string& encode,
                          const std::string& length = "echo 00:00:10.00");

  // The command of a daemon that runs it, with ticks that far apart.
  std::string daemon(int tickMs = 600000) const;
  const TempDir& here() const { return dir; }

 private:
  TempDir dir;
};

// Waits until the condition holds, running the default context meanwhile; whether it came to hold.
bool waitUntil(const std::function<bool()>& condition);

#endif
