#include "platform/ffmpeg/process/stop_signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <initializer_list>

StopSignals::StopSignals() {
  sigset_t watched;
  sigemptyset(&watched);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
    sigaddset(&watched, number);
  }
  sigprocmask(SIG_BLOCK, &watched, &previous);
  signalFd = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
}

StopSignals::~StopSignals() {
  close(signalFd);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
}

void StopSignals::read() {
  signalfd_siginfo info;
  while (::read(signalFd, &info, sizeof(info)) == sizeof(info)) {
    if (info.ssi_signo != SIGCHLD) stopSignal = static_cast<int>(info.ssi_signo);
  }
}

void StopSignals::restoreDefaults() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
}
