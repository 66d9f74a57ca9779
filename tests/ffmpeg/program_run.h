// Runs the program under test as the daemon does: standard error through a pipe, a wait status.
#ifndef TESTS_FFMPEG_PROGRAM_RUN_H
#define TESTS_FFMPEG_PROGRAM_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

struct RunResult {
  int exitCode = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string err;
  std::string out;
};

// The program while it runs.
class StartedProgram {
 public:
  // `environment` holds NAME=value, in addition to our own.
  explicit StartedProgram(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment = {});
  // Kills it, should it still run.
  ~StartedProgram();
  StartedProgram(const StartedProgram&) = delete;
  StartedProgram& operator=(const StartedProgram&) = delete;

  pid_t pid() const { return child; }
  // Reads standard error to its end, then takes the status.
  RunResult wait();

 private:
  pid_t child = -1;
  int errFd = -1;
  int outFd = -1;
};

RunResult runFfmpeg(const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment = {});

#endif
