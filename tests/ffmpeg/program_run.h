// Runs the program under test as the daemon does: standard error through a pipe, a wait status.
#ifndef TESTS_FFMPEG_PROGRAM_RUN_H
#define TESTS_FFMPEG_PROGRAM_RUN_H

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

struct RunResult {
  int exitCode = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string err;
  std::string out;
};

// A folder of its own for one test, removed at its end.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  std::string file(const std::string& name) const { return folder / name; }
  const std::filesystem::path& path() const { return folder; }
  // The names in it, hidden ones too, sorted.
  std::vector<std::string> names() const;

 private:
  std::filesystem::path folder;
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

// Waits until `condition` holds, for ten seconds at most; whether it came to hold.
bool waitUntil(const std::function<bool()>& condition);

std::string readText(const std::string& path);
void writeText(const std::string& path, const std::string& text);

// Makes an executable shell script named ffmpeg in a folder of its own beneath `folder` and
// returns PATH=… that finds it first.
std::string pathWithFakeFfmpeg(const TestFolder& folder, const std::string& script);

#endif
