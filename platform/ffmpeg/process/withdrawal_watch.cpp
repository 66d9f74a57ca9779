#include "platform/ffmpeg/process/withdrawal_watch.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/ffmpeg/process/process_setup.h"
#include "platform/held/held_file.h"

namespace {

bool isSameFile(const std::string& path, int fd) {
  struct stat byName {};
  struct stat byFd {};
  return lstat(path.c_str(), &byName) == 0 && fstat(fd, &byFd) == 0 &&
         byName.st_dev == byFd.st_dev && byName.st_ino == byFd.st_ino;
}

[[noreturn]] void watch(const std::string& output, pid_t parent) {
  if (!endWithParent(SIGKILL, parent)) _exit(1);
  prctl(PR_SET_NAME, "ffmpeg-watch");
  closefrom(0);  // who waits for the end of our standard error must not wait for this process
  const int fd = open(output.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd >= 0 && !awaitLetGo(fd)) _exit(1);
  if (fd >= 0 && isSameFile(output, fd)) unlink(output.c_str());
  kill(parent, SIGTERM);
  _exit(0);
}

}  // namespace

WithdrawalWatch::WithdrawalWatch(const std::string& output) {
  if (!hasHeldName(output)) return;
  const pid_t self = getpid();
  process = fork();
  if (process == 0) watch(output, self);
}

WithdrawalWatch::~WithdrawalWatch() {
  if (process <= 0) return;
  kill(process, SIGKILL);
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
}
