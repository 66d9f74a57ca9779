#include "client/commands/many_files.h"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "client/commands/progress_line.h"
#include "client/files/made_folders.h"
#include "client/units/byte_size.h"

namespace fs = std::filesystem;

namespace {

constexpr int kLookMs = 250;

// What a child tells in memory that it shares.
struct Told {
  std::atomic<double> share;
  std::atomic<int64_t> inputBytes;
  std::atomic<int64_t> outputBytes;
};

// One for each file.
class Board {
 public:
  explicit Board(size_t count) : size(count * sizeof(Told)) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    told = static_cast<Told*>(memory);  // all zeros
  }
  ~Board() { munmap(told, size); }
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  Told& operator[](size_t index) { return told[index]; }

 private:
  size_t size;
  Told* told;
};

// The signals that end a command, less those that are ignored, and the one of a child's end: they
// wait in a descriptor while this exists.
class SignalQueue {
 public:
  SignalQueue() {
    sigset_t awaited;
    sigemptyset(&awaited);
    signal(SIGCHLD, SIG_DFL);
    sigaddset(&awaited, SIGCHLD);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction now = {};
      if (sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_IGN) {
        sigaddset(&awaited, number);
      }
    }
    sigprocmask(SIG_BLOCK, &awaited, &before);
    descriptor = signalfd(-1, &awaited, SFD_NONBLOCK | SFD_CLOEXEC);
  }
  ~SignalQueue() {
    close(descriptor);
    letThrough();
  }
  SignalQueue(const SignalQueue&) = delete;
  SignalQueue& operator=(const SignalQueue&) = delete;

  // As it was before. For a child.
  void letThrough() const { sigprocmask(SIG_SETMASK, &before, nullptr); }

  // Waits a moment for one. The number of the last one that ends a command, or 0.
  int take() const {
    pollfd waiting = {descriptor, POLLIN, 0};
    poll(&waiting, 1, kLookMs);
    int number = 0;
    signalfd_siginfo one;
    while (read(descriptor, &one, sizeof one) == sizeof one) {
      if (one.ssi_signo != SIGCHLD) number = static_cast<int>(one.ssi_signo);
    }
    return number;
  }

 private:
  sigset_t before;
  int descriptor;
};

// What a child prints on a stream of its own.
class Notes {
 public:
  Notes() : fd(memfd_create("notes", MFD_CLOEXEC)) {
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
  }
  ~Notes() { close(fd); }
  Notes(const Notes&) = delete;
  Notes& operator=(const Notes&) = delete;

  void takePlaceOf(int stream) const { dup2(fd, stream); }
  void copyTo(FILE* stream) const {
    char part[4096];
    off_t at = 0;
    for (ssize_t count; (count = pread(fd, part, sizeof part, at)) > 0; at += count) {
      fwrite(part, 1, static_cast<size_t>(count), stream);
    }
    fflush(stream);
  }

 private:
  int fd;
};

struct Child {
  size_t index;
  Notes results;
  Notes failures;
};

class Crew {
 public:
  Crew(const std::vector<FileTask>& all, const Options& wishes, Make maker)
      : tasks(all), options(wishes), make(maker), board(all.size()) {}

  ExitCode run() {
    folders.make(fs::path(tasks[0].out).parent_path());  // where it fails each file says why
    while (hasMore() || !children.empty()) {
      while (hasMore() && children.size() < static_cast<size_t>(options.jobs)) {
        start(next++);
      }
      takeSignal(signals.take());
      takeEnds();
      showProgress();
    }
    line.hide();
    tellOfOthers();
    sayInTheEnd();
    if (signalNumber != 0) return static_cast<ExitCode>(ExitSignal + signalNumber);
    return worst == ExitNoService ? ExitNoService : worst == ExitDone ? ExitDone : ExitFailed;
  }

 private:
  bool hasMore() const {
    return next < tasks.size() && signalNumber == 0 && worst != ExitNoService;
  }

  void start(size_t index) {
    auto child = std::make_unique<Child>();
    child->index = index;
    fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (pid == 0) work(*child, parent);
    children.emplace(pid, std::move(child));
  }

  // In the child.
  [[noreturn]] void work(const Child& child, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(ExitFailed);
    signals.letThrough();
    child.results.takePlaceOf(STDOUT_FILENO);
    child.failures.takePlaceOf(STDERR_FILENO);
    Told& told = board[child.index];
    ExitCode exitCode = ExitFailed;
    try {
      const Watcher watcher = {[&](const Step& step) { told.share = step.share; },
                               [&](const std::string& words) {
                                 if (options.quiet) return;
                                 sayFailure(tasks[child.index].in + ": " + words);
                               }};
      const Outcome outcome = makeOne(tasks[child.index], options, make, watcher);
      told.inputBytes = outcome.inputBytes.value_or(0);
      told.outputBytes = outcome.outputBytes.value_or(0);
      tell(outcome, options);
      exitCode = outcome.exitCode;
    } catch (const std::exception& problem) {
      sayFailure(problem.what());
    }
    fflush(nullptr);
    _exit(exitCode);
  }

  void takeSignal(int number) {
    if (number == 0) return;
    if (signalNumber == 0) signalNumber = number;
    for (const auto& [pid, child] : children) {
      kill(pid, number);
    }
  }

  void takeEnds() {
    int status = 0;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
      const auto found = children.find(pid);
      if (found == children.end()) continue;
      takeEnd(*found->second, status);
      children.erase(found);
    }
  }

  void takeEnd(const Child& child, int status) {
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : ExitFailed;
    board[child.index].share = 1;
    ++ended;
    line.hide();
    child.results.copyTo(stdout);
    if (code < ExitSignal) child.failures.copyTo(stderr);  // of the signal it is told once
    if (WIFSIGNALED(status)) {
      const std::string number = std::to_string(WTERMSIG(status));
      const std::string reason = "the process that made it was ended by signal " + number;
      tellProgram(child.index, reason);
      if (signalNumber == 0) sayFailure(tasks[child.index].in + ": " + reason);
    }
    if (code != ExitDone) {
      ++failed;
      if (worst != ExitNoService) worst = code == ExitNoService ? ExitNoService : ExitFailed;
      return;
    }
    inputBytes += board[child.index].inputBytes;
    outputBytes += board[child.index].outputBytes;
  }

  // A program that reads JSON gets an object for every file.
  void tellProgram(size_t index, const std::string& reason) const {
    if (!options.json) return;
    Outcome outcome;
    outcome.input = tasks[index].in;
    outcome.output = tasks[index].out;
    outcome.fail(reason);
    printf("%s\n", jsonOf(outcome).c_str());
    fflush(stdout);
  }

  void tellOfOthers() {
    for (; next < tasks.size(); ++next) {
      tellProgram(next, "it was not begun");
    }
  }

  void showProgress() {
    if (children.empty()) return;
    double sum = 0;
    for (size_t i = 0; i < tasks.size(); ++i) {
      sum += board[i].share;
    }
    line.show({.share = sum / static_cast<double>(tasks.size())});
  }

  void sayInTheEnd() const {
    const std::string count =
        std::to_string(ended - failed) + " of " + std::to_string(tasks.size());
    if (signalNumber != 0) {
      sayFailure("interrupted: " + count + " files are made, the other outputs are as they were");
    } else if (options.dryRun && !options.quiet) {
      fprintf(stderr, "%s files would be made\n", count.c_str());
    } else if (!options.quiet && !options.json) {
      fprintf(stderr, "%s files made, %s became %s\n", count.c_str(),
              formatByteSize(inputBytes).c_str(), formatByteSize(outputBytes).c_str());
    }
  }

  const std::vector<FileTask>& tasks;
  const Options& options;
  const Make make;
  const SignalQueue signals;
  MadeFolders folders;  // those of all files: one that fails must not take them from the others
  Board board;
  std::map<pid_t, std::unique_ptr<Child>> children;
  ProgressLine line{options};
  size_t next = 0;
  size_t ended = 0;
  size_t failed = 0;
  int64_t inputBytes = 0;  // of the files made
  int64_t outputBytes = 0;
  int signalNumber = 0;
  ExitCode worst = ExitDone;
};

}  // namespace

ExitCode runMany(const std::vector<FileTask>& tasks, const Options& options, Make make) {
  showsColours();  // decided here: the children's stderr is no terminal
  return Crew(tasks, options, make).run();
}
