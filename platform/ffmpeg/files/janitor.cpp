#include "platform/ffmpeg/files/janitor.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <initializer_list>

namespace {

[[noreturn]] void waitAndRemove(int lifeline, const std::vector<std::string>& paths) {
  standBy("ffmpeg-janitor");
  dup2(lifeline, STDIN_FILENO);
  closefrom(1);  // locks among them would outlive who took them
  char ignored;
  ssize_t count = 0;
  do {
    count = read(STDIN_FILENO, &ignored, 1);
  } while (count > 0 || (count < 0 && errno == EINTR));
  for (const std::string& path : paths) {
    std::error_code failure;
    std::filesystem::remove_all(path, failure);
  }
  _exit(0);
}

}  // namespace

void standBy(const char* name) {
  setsid();
  prctl(PR_SET_NAME, name);
  prctl(PR_SET_PDEATHSIG, 0);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
    signal(number, SIG_IGN);
  }
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    close(fd);
  }
}

Janitor::Janitor(const std::vector<std::string>& paths) {
  int ends[2];
  if (pipe(ends) != 0) return;
  lifeline = ends[1];
  process = fork();
  if (process == 0) {
    close(ends[1]);
    waitAndRemove(ends[0], paths);
  }
  close(ends[0]);
}

Janitor::~Janitor() {
  if (process > 0) {
    kill(process, SIGKILL);
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  if (lifeline >= 0) close(lifeline);
}
