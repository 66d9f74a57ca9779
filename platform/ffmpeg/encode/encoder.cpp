#include "platform/ffmpeg/encode/encoder.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "platform/ffmpeg/encode/progress_reader.h"
#include "platform/ffmpeg/process/process_setup.h"
#include "platform/ffmpeg/process/real_ffmpeg.h"
#include "platform/ffmpeg/process/stop_signals.h"

namespace {

using Clock = std::chrono::steady_clock;
using End = EncodeResult::End;

constexpr int kShortestWaitMs = 20;
constexpr int kWorkShare = 10;        // of the stall limit: the work after which a frame is due
constexpr int kLongestStarving = 10;  // stall limits
constexpr int kNotStarted = 127;      // the child's exit code when it cannot become ffmpeg

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    readEnd = ends[0];
    writeEnd = ends[1];
    fcntl(readEnd, F_SETFL, O_NONBLOCK);
  }
  ~Pipe() {
    closeWriteEnd();
    if (readEnd >= 0) close(readEnd);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void closeWriteEnd() {
    if (writeEnd >= 0) close(writeEnd);
    writeEnd = -1;
  }
  int readEnd = -1;
  int writeEnd = -1;
};

// What the encoder must not take from our environment, and what it must know.
void prepareEnvironment() {
  unsetenv("FFREPORT");  // it would write a report file
  unsetenv("FFMPEG_DATADIR");
  setenv("AV_LOG_FORCE_NOCOLOR", "1", 1);
  setenv("LC_ALL", "C", 1);
  setenv(kStartedByUs, "1", 1);
}

[[noreturn]] void becomeEncoder(const EncodeJob& job, const Pipe& progress, const Pipe& errors,
                                pid_t parent) {
  if (!endWithParent(SIGKILL, parent)) _exit(kNotStarted);
  setpgid(0, 0);
  dup2(progress.writeEnd, STDOUT_FILENO);
  dup2(errors.writeEnd, STDERR_FILENO);
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  prepareEnvironment();
  StopSignals::restoreDefaults();
  std::vector<char*> argv;
  for (const std::string& argument : job.arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));  // execv's contract: it does not write
  }
  argv.push_back(nullptr);
  if (job.sandbox.enter()) execv(argv[0], argv.data());
  _exit(kNotStarted);
}

// The encoder while it runs.
class RunningEncode {
 public:
  RunningEncode(EncodeJob&& encodeJob, StopSignals& stopSignals, const EncodeWatch& progressWatch)
      : job(std::move(encodeJob)), signals(stopSignals), watch(progressWatch) {}

  EncodeResult run() {
    EncodeResult result;
    if (!start()) return result;
    noteProgress();
    while (!hasEnded()) {
      wait();
      signals.read();
      drain();
      if (signals.received() != 0) kill(End::Stopped);
      if (isStalled()) kill(End::Stalled);
    }
    drain();
    job.words.finish();
    describe(&result);
    return result;
  }

 private:
  bool start() {
    if (progressPipe.readEnd < 0 || errorPipe.readEnd < 0) return false;
    const pid_t parent = getpid();
    pid = fork();
    if (pid == 0) becomeEncoder(job, progressPipe, errorPipe, parent);
    progressPipe.closeWriteEnd();
    errorPipe.closeWriteEnd();
    return pid > 0;
  }

  // Until something is readable, a signal came or it is time to look at the clock.
  void wait() {
    pollfd watched[] = {{signals.fd(), POLLIN, 0},
                        {progressOpen ? progressPipe.readEnd : -1, POLLIN, 0},
                        {errorsOpen ? errorPipe.readEnd : -1, POLLIN, 0}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        lastProgress + job.stallLimit - Clock::now());
    const auto limit = std::clamp<int64_t>(left.count() + 1, kShortestWaitMs, 1000);
    poll(watched, 3, static_cast<int>(limit));
  }

  void drain() {
    char piece[4096];
    ssize_t count = 0;
    while (errorsOpen && (count = read(errorPipe.readEnd, piece, sizeof(piece))) > 0) {
      job.words.add({piece, static_cast<size_t>(count)});
    }
    if (count == 0) errorsOpen = false;
    bool further = false;
    count = -1;
    while (progressOpen && (count = read(progressPipe.readEnd, piece, sizeof(piece))) > 0) {
      further |= reader.add({piece, static_cast<size_t>(count)});
    }
    if (count == 0) progressOpen = false;
    if (!further) return;
    noteProgress();
    if (!watch(reader.positionMs(), reader.bytes())) kill(End::Refused);
  }

  void noteProgress() {
    lastProgress = lastWork = Clock::now();
    cpuAtProgress = cpuAtWork = cpuTime();
  }

  // What the encoder has had of the processors so far.
  std::chrono::nanoseconds cpuTime() const {
    clockid_t clock;
    timespec time = {};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0) return {};
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }

  // On a busy machine an honest encoder may hardly get to run: one that works, but has come to
  // little yet, is given more time.
  bool isStalled() {
    const auto now = Clock::now();
    const auto cpu = cpuTime();
    if (cpu != cpuAtWork) {
      lastWork = now;
      cpuAtWork = cpu;
    }
    if (now - lastProgress <= job.stallLimit) return false;
    const bool isAtWork = now - lastWork <= job.stallLimit;
    const bool isStarved = isAtWork && cpu - cpuAtProgress < job.stallLimit / kWorkShare;
    return !isStarved || now - lastProgress > job.stallLimit * kLongestStarving;
  }

  void kill(End reason) {
    if (killedFor != End::Done) return;
    killedFor = reason;
    ::kill(-pid, SIGKILL);
    ::kill(pid, SIGKILL);  // in case it has no group of its own yet
  }

  bool hasEnded() { return waitpid(pid, &status, WNOHANG) == pid; }

  void describe(EncodeResult* result) const {
    result->words = job.words.text();
    result->positionMs = reader.positionMs();
    result->bytes = reader.bytes();
    if (killedFor != End::Done) {
      result->end = killedFor;
      result->signal = signals.received();
    } else if (WIFSIGNALED(status)) {
      result->end = End::Crashed;
      result->signal = WTERMSIG(status);
    } else if (WEXITSTATUS(status) == kNotStarted) {
      result->end = End::NotStarted;
    } else {
      result->end = WEXITSTATUS(status) == 0 ? End::Done : End::Failed;
    }
  }

  EncodeJob job;
  StopSignals& signals;
  const EncodeWatch& watch;
  Pipe progressPipe;
  Pipe errorPipe;
  bool progressOpen = true;
  bool errorsOpen = true;
  ProgressReader reader;
  Clock::time_point lastProgress;
  std::chrono::nanoseconds cpuAtProgress{};
  Clock::time_point lastWork;
  std::chrono::nanoseconds cpuAtWork{};
  pid_t pid = -1;
  int status = 0;
  End killedFor = End::Done;
};

}  // namespace

EncodeResult runEncode(EncodeJob job, StopSignals& signals, const EncodeWatch& watch) {
  return RunningEncode(std::move(job), signals, watch).run();
}
