#include "fit/worker/report_channel.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "fit/wire/report_lines.h"

// A service that has died before we asked for its death's signal is seen by the pipe's end.
void ReportChannel::endWithService() const {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  pollfd end = {fd, POLLOUT, 0};
  if (poll(&end, 1, 0) > 0 && (end.revents & POLLERR) != 0) _exit(1);
}

void ReportChannel::tell(const std::string& line) const {
  [[maybe_unused]] const ssize_t ignored = write(fd, line.data(), line.size());
}

void ReportChannel::tellWriting() const {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  tell(writingLine());
}
