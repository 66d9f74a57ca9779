#include "tests/support/processes.h"

#include <unistd.h>

#include <cstdlib>

#include "tests/support/temp_dir.h"

std::vector<pid_t> processesAbout(const std::string& text) {
  std::vector<pid_t> found;
  for (const std::string& name : namesIn("/proc")) {
    const auto pid = static_cast<pid_t>(strtol(name.c_str(), nullptr, 10));
    if (pid <= 0 || pid == getpid()) continue;
    if (readFile("/proc/" + name + "/cmdline").find(text) != std::string::npos) {
      found.push_back(pid);
    }
  }
  return found;
}

std::vector<pid_t> processesNamed(const std::string& name, const std::string& text) {
  std::vector<pid_t> found;
  for (const pid_t pid : processesAbout(text)) {
    if (readFile("/proc/" + std::to_string(pid) + "/comm") == name + "\n") found.push_back(pid);
  }
  return found;
}
