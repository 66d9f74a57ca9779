// An `ffmpeg` first on PATH while this lives: a shell script that also notes its arguments.
#ifndef TESTS_SUPPORT_FAKE_FFMPEG_H
#define TESTS_SUPPORT_FAKE_FFMPEG_H

#include <string>
#include <vector>

#include "tests/support/scoped_variable.h"
#include "tests/support/temp_dir.h"

class FakeFfmpeg {
 public:
  using Arguments = std::vector<std::string>;

  // The script runs in the shell with the call's arguments and $here, a folder for its files.
  explicit FakeFfmpeg(const std::string& script);

  // What each call so far was given, in order, without the program's name. A call in a sandbox that
  // keeps it from writing here is not noted.
  std::vector<Arguments> calls() const;
  const TempDir& here() const { return dir; }

 private:
  TempDir dir;
  ScopedVariable path;
};

// Script text that answers a probe with the report on stderr and fails, and goes on with what
// follows for a transcoding call.
std::string reportsOnProbe(const std::string& report);

#endif
