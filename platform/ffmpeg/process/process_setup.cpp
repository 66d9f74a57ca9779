#include "platform/ffmpeg/process/process_setup.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <vector>

namespace {

// For kernels older than close_range.
void closeListedDescriptors() {
  DIR* folder = opendir("/proc/self/fd");
  if (!folder) return;
  std::vector<int> open;
  while (const dirent* entry = readdir(folder)) {
    const int fd = static_cast<int>(strtol(entry->d_name, nullptr, 10));
    if (fd > 2 && fd != dirfd(folder)) open.push_back(fd);
  }
  closedir(folder);
  for (const int fd : open) {
    close(fd);
  }
}

void closeAboveTwo() {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, 3U, UINT_MAX, 0U) == 0) return;
#endif
  closeListedDescriptors();
}

}  // namespace

void closeInheritedDescriptors() {
  closeAboveTwo();
  for (int fd = open("/dev/null", O_RDWR); fd >= 0; fd = open("/dev/null", O_RDWR)) {
    if (fd <= 2) continue;  // it fills a gap and stays
    dup2(fd, STDIN_FILENO);
    close(fd);
    return;
  }
}

void resetSignals() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
    signal(number, SIG_DFL);
  }
  signal(SIGPIPE, SIG_IGN);
}

bool endWithParent(int signal, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, signal);
  return getppid() == parent;
}

bool isListenedTo() {
  pollfd end = {STDERR_FILENO, POLLOUT, 0};
  return poll(&end, 1, 0) < 0 || (end.revents & POLLERR) == 0;
}
