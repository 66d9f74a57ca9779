#include "packaging/daemon_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// An old log of more is begun anew.
constexpr off_t kMostBytes = 1 << 20;

// systemd tells its services which stream is the journal's, as DEVICE:INODE.
bool isJournal(int fd) {
  const char* journal = getenv("JOURNAL_STREAM");
  struct stat status = {};
  return journal != nullptr && fstat(fd, &status) == 0 &&
         std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == journal;
}

std::string ownLog() {
  const char* run = getenv("XDG_RUNTIME_DIR");
  if (run == nullptr || run[0] != '/') return "/dev/null";
  const std::string folder = std::string(run) + "/tarn-transcode";
  mkdir(folder.c_str(), 0700);
  return folder + "/log";
}

int openLog(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
  const int fd = open(path.c_str(), kFlags, 0600);
  if (fd < 0) return open("/dev/null", O_WRONLY | O_CLOEXEC);
  struct stat status = {};
  const bool isLong = fstat(fd, &status) == 0 && status.st_size > kMostBytes;
  if (isLong && ftruncate(fd, 0) != 0) errno = 0;  // it grows on
  return fd;
}

}  // namespace

int redirectOutput() {
  const char* wish = getenv("TARN_LOG");
  const bool stays = wish != nullptr ? strcmp(wish, "-") == 0 : isJournal(STDERR_FILENO);
  const int log = stays ? -1 : openLog(wish != nullptr ? wish : ownLog());
  if (log < 0) return -1;
  const int former = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  dup2(log, STDOUT_FILENO);
  dup2(log, STDERR_FILENO);
  close(log);
  return former;
}
