#include "platform/ffmpeg/process/process_setup.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <initializer_list>

void closeInheritedDescriptors() {
  closefrom(3);
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
