#include "platform/ffmpeg/process/caged_call.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/ffmpeg/process/process_setup.h"
#include "platform/ffmpeg/process/sandbox.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kLongestAnswer = 1 << 20;
constexpr int kNoCage = 126;  // the child's exit codes
constexpr int kNoAnswer = 125;

bool writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

// Standard error stays: what a checked build has to say goes there.
[[noreturn]] void answerFrom(int inputFd, int answerFd, pid_t parent, const CagedLimits& limits,
                             const std::function<std::string(int)>& call) {
  if (!endWithParent(SIGKILL, parent)) _exit(kNoAnswer);
  resetSignals();
  dup2(inputFd, STDIN_FILENO);
  dup2(answerFd, STDOUT_FILENO);
  closefrom(3);
  Sandbox cage;
  cage.limitMemory(limits.memoryBytes);
  if (!cage.enter()) _exit(kNoCage);
  _exit(writeAll(STDOUT_FILENO, call(STDIN_FILENO)) ? 0 : kNoAnswer);
}

// Reads to the end of file. False when that did not come in time or the text became too long.
bool readAnswer(int fd, Clock::time_point deadline, std::string* answer) {
  char piece[65536];
  while (answer->size() <= kLongestAnswer) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd end = {fd, POLLIN, 0};
    if (poll(&end, 1, static_cast<int>(left)) <= 0) continue;
    const ssize_t count = read(fd, piece, sizeof(piece));
    if (count == 0) return true;
    if (count > 0) answer->append(piece, static_cast<size_t>(count));
  }
  return false;
}

std::string seconds(std::chrono::milliseconds time) {
  const std::string tenths = std::to_string(time.count() / 100 % 10);
  return std::to_string(time.count() / 1000) + (tenths == "0" ? "" : "." + tenths) + " s";
}

std::string failure(bool inTime, int status, const CagedLimits& limits) {
  if (!inTime) return "it could not be read within " + seconds(limits.time);
  if (WIFSIGNALED(status)) {
    const int number = WTERMSIG(status);
    return "its reader died of signal " + std::to_string(number) + " (" + strsignal(number) + ")";
  }
  return WEXITSTATUS(status) == kNoCage ? "the sandbox cannot be entered" : "its reader failed";
}

}  // namespace

bool callCaged(int inputFd, const CagedLimits& limits, const std::function<std::string(int)>& call,
               std::string* answer, std::string* error) {
  answer->clear();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    *error = strerror(errno);
    return false;
  }
  const Clock::time_point deadline = Clock::now() + limits.time;
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) answerFrom(inputFd, ends[1], parent, limits, call);
  const int forkError = errno;
  close(ends[1]);
  if (child < 0) {
    close(ends[0]);
    *error = strerror(forkError);
    return false;
  }
  const bool inTime = readAnswer(ends[0], deadline, answer);
  close(ends[0]);
  kill(child, SIGKILL);  // it has ended, or has no more to say
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (inTime && WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  *error = failure(inTime, status, limits);
  return false;
}
