#include "platform/ffmpeg/files/pass_log_guard.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "platform/ffmpeg/files/janitor.h"

namespace {

constexpr int kPassLogs = 10;

// Descriptors: readable when the caller has ended, at its end of file when the first pass has, and
// readable when something has happened to one of the files.
struct Ends {
  int caller;
  int pass;
  int files;
};

bool isThere(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    if (access(file.c_str(), F_OK) == 0) return true;
  }
  return false;
}

// Whether the caller ended first.
bool outlivesCaller(const Ends& ends, const std::vector<std::string>& files) {
  bool passRuns = true;
  while (passRuns || isThere(files)) {
    pollfd watched[] = {
        {ends.caller, POLLIN, 0}, {passRuns ? ends.pass : -1, POLLIN, 0}, {ends.files, POLLIN, 0}};
    if (poll(watched, 3, -1) < 0 && errno != EINTR) return false;
    if (watched[0].revents != 0) return true;
    if (watched[1].revents != 0) {
      passRuns = false;
      for (const std::string& file : files) {
        inotify_add_watch(ends.files, file.c_str(), IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF);
      }
    }
    char events[4096];
    if (watched[2].revents != 0 && read(ends.files, events, sizeof(events)) < 0) return false;
  }
  return false;
}

[[noreturn]] void guard(const Ends& ends, const std::vector<std::string>& files) {
  // The pass, which ends with the caller, may be about to leave the files.
  if (outlivesCaller(ends, files)) {
    pollfd pass = {ends.pass, POLLIN, 0};
    poll(&pass, 1, -1);
    for (const std::string& file : files) {
      unlink(file.c_str());
    }
  }
  _exit(0);
}

}  // namespace

std::vector<std::string> passLogs(const std::string& prefix) {
  std::vector<std::string> files;
  files.reserve(kPassLogs);
  for (int number = 0; number < kPassLogs; ++number) {
    files.push_back(prefix + "-" + std::to_string(number) + ".log");
  }
  return files;
}

void guardPassLogs(const std::vector<std::string>& files, pid_t caller) {
  const int callerFd = static_cast<int>(syscall(SYS_pidfd_open, caller, 0));
  int pass[2];
  if (callerFd < 0) return;
  if (pipe2(pass, O_CLOEXEC) == 0) {
    if (fork() == 0) {
      close(pass[1]);
      standBy("ffmpeg-guard");
      guard({callerFd, pass[0], inotify_init1(IN_CLOEXEC)}, files);
    }
    close(pass[0]);  // the other end stays open as long as we run
  }
  close(callerFd);
}
