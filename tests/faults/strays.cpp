#include "tests/faults/strays.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string content(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure); !failure && entry != fs::directory_iterator();
       entry.increment(failure)) {
    names.push_back(entry->path().filename());
  }
  return names;
}

std::vector<pid_t> processesAbout(const std::string& text) {
  std::vector<pid_t> found;
  for (const std::string& name : namesIn("/proc")) {
    const auto pid = static_cast<pid_t>(strtol(name.c_str(), nullptr, 10));
    if (pid <= 0 || pid == getpid()) continue;
    if (content("/proc/" + name + "/cmdline").find(text) != std::string::npos) found.push_back(pid);
  }
  return found;
}

std::vector<pid_t> processesNamed(const std::string& name, const std::string& text) {
  std::vector<pid_t> found;
  for (const pid_t pid : processesAbout(text)) {
    if (content("/proc/" + std::to_string(pid) + "/comm") == name + "\n") found.push_back(pid);
  }
  return found;
}

bool comesTrueWithin(int milliseconds, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}
