#include "client/files/standard_streams.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

constexpr int kLookMs = 100;

// Whether the descriptor is ready before somebody ends the command.
bool awaits(int fd, short what, const std::function<bool()>& goesOn) {
  pollfd waiting = {fd, what, 0};
  while (goesOn()) {
    if (poll(&waiting, 1, kLookMs) > 0) return true;
  }
  errno = EINTR;
  return false;
}

// A pipe takes PIPE_BUF without a wait when it is ready.
bool writes(int fd, const char* data, size_t count, const std::function<bool()>& goesOn) {
  while (count > 0) {
    if (!awaits(fd, POLLOUT, goesOn)) return false;
    const ssize_t written = write(fd, data, std::min<size_t>(count, PIPE_BUF));
    if (written < 0) return false;
    data += written;
    count -= static_cast<size_t>(written);
  }
  return true;
}

bool copies(int from, int to, const std::function<bool()>& goesOn) {
  char part[65536];
  while (awaits(from, POLLIN, goesOn)) {
    const ssize_t count = read(from, part, sizeof part);
    if (count <= 0) return count == 0;
    if (!writes(to, part, static_cast<size_t>(count), goesOn)) return false;
  }
  return false;
}

}  // namespace

PrivateFolder::PrivateFolder() {
  const char* place = getenv("TMPDIR");
  std::string name =
      std::string(place == nullptr || *place != '/' ? "/tmp" : place) + "/tarn-XXXXXX";
  if (mkdtemp(name.data()) != nullptr) folder = name;
}

PrivateFolder::~PrivateFolder() {
  std::error_code ignored;
  if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
}

bool takeStandardInput(const std::string& path, const std::function<bool()>& goesOn,
                       std::string* error) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const bool isTaken = file >= 0 && copies(STDIN_FILENO, file, goesOn);
  if (!isTaken) *error = std::string("cannot read standard input: ") + strerror(errno);
  if (file >= 0) close(file);
  return isTaken;
}

bool giveToStandardOutput(const std::string& path, const std::function<bool()>& goesOn,
                          std::string* error) {
  signal(SIGPIPE, SIG_IGN);
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool isGiven = file >= 0 && copies(file, STDOUT_FILENO, goesOn);
  if (!isGiven) *error = std::string("cannot write standard output: ") + strerror(errno);
  if (file >= 0) close(file);
  return isGiven;
}
