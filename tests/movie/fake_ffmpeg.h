// An `ffmpeg` first on PATH while this lives: a shell script that also notes its arguments.
#ifndef TESTS_MOVIE_FAKE_FFMPEG_H
#define TESTS_MOVIE_FAKE_FFMPEG_H

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

class FakeFfmpeg {
 public:
  using Arguments = std::vector<std::string>;

  // The script runs with the call's arguments, in the shell.
  explicit FakeFfmpeg(const std::string& script);
  ~FakeFfmpeg();
  FakeFfmpeg(const FakeFfmpeg&) = delete;
  FakeFfmpeg& operator=(const FakeFfmpeg&) = delete;

  // What each call so far was given, in order, without the program's name.
  std::vector<Arguments> calls() const;

 private:
  TempDir dir;
  std::string earlierPath;
};

// Script text that answers a probe with the report on stderr and fails, and goes on with what
// follows for a transcoding call.
std::string reportsOnProbe(const std::string& report);

#endif
