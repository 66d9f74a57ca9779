// A child program whose end the test watches.
#ifndef TESTS_E2E_SPAWNED_PROGRAM_H
#define TESTS_E2E_SPAWNED_PROGRAM_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

class SpawnedProgram {
 public:
  // Starts the program with NAME=value as its whole environment, its output going to logPath.
  SpawnedProgram(const std::string& path, std::vector<std::string> environment,
                 const std::string& logPath);
  // Kills it if it still runs.
  ~SpawnedProgram();
  SpawnedProgram(const SpawnedProgram&) = delete;
  SpawnedProgram& operator=(const SpawnedProgram&) = delete;

  pid_t pid() const { return child; }
  // Waits for its end, running the default main context meanwhile. The wait status, or nothing when
  // it takes longer.
  std::optional<int> waitForEnd(int deadlineMs);

 private:
  pid_t child = -1;
};

#endif
