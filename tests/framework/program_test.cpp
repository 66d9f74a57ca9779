#include "src/framework/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "tests/movie/failing_calls.h"

namespace {

// What the child does; it ends with the result as its exit status.
class Child final : public Program {
 public:
  explicit Child(std::function<int()> theBody) : body(std::move(theBody)) {}
  int exec() override { _exit(body()); }

 private:
  std::function<int()> body;
};

class Returning final : public Program {
 public:
  int exec() override { return 0; }
};

void writeAll(int descriptor, const std::string& text) {
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t n = write(descriptor, text.data() + written, text.size() - written);
    if (n <= 0) _exit(99);
    written += static_cast<size_t>(n);
  }
}

size_t openDescriptors() {
  const auto all = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

struct Outcome {
  std::string out = "out before, ";
  std::string err = "before, ";
  int status = -7;
  int result;

  explicit Outcome(std::function<int()> body, int niceInc = 0) {
    Child child(std::move(body));
    result = execProgram(out, err, &status, niceInc, &child);
  }
  bool exitedWith(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

TEST(ProgramTest, SilentChildLeavesTheTextsAlone) {
  const Outcome outcome([] { return 0; });
  EXPECT_GT(outcome.result, 0);
  EXPECT_TRUE(outcome.exitedWith(0));
  EXPECT_EQ(outcome.err, "before, ");
  EXPECT_EQ(outcome.out, "out before, ");
}

TEST(ProgramTest, ResultIsTheChildsProcessId) {
  const Outcome outcome([] { return dprintf(STDERR_FILENO, "%d", getpid()) > 0 ? 0 : 1; });
  EXPECT_EQ(outcome.err, "before, " + std::to_string(outcome.result));
}

TEST(ProgramTest, StandardErrorIsAppendedWholeAndInOrder) {
  std::string text;
  for (int i = 0; i < 50; i++) {
    text += std::to_string(1000 + i);
  }
  ASSERT_EQ(text.size(), 200U);
  const Outcome outcome([&] {
    writeAll(STDERR_FILENO, text);
    return 3;
  });
  EXPECT_TRUE(outcome.exitedWith(3));
  EXPECT_EQ(outcome.err, "before, " + text);
}

TEST(ProgramTest, MoreThanAPipeHoldsComesWhole) {
  const std::string text(200000, 'x');
  const Outcome outcome([&] {
    writeAll(STDERR_FILENO, text);
    return 0;
  });
  EXPECT_EQ(outcome.err, "before, " + text);
}

TEST(ProgramTest, StandardOutputGoesNowhere) {
  const Outcome outcome([] {
    writeAll(STDOUT_FILENO, std::string(60000, 'o'));
    writeAll(STDERR_FILENO, "e");
    return 0;
  });
  EXPECT_TRUE(outcome.exitedWith(0));
  EXPECT_EQ(outcome.out, "out before, ");
  EXPECT_EQ(outcome.err, "before, e");
}

TEST(ProgramTest, WhatFollowsANulInAPieceIsLost) {
  std::string first(64, 'a');
  first[3] = '\0';
  const Outcome outcome([&] {
    writeAll(STDERR_FILENO, first + std::string(64, 'b'));
    return 0;
  });
  EXPECT_EQ(outcome.err, "before, aaa" + std::string(64, 'b'));
}

TEST(ProgramTest, BytesThatAreNoTextComeThrough) {
  const Outcome outcome([] {
    writeAll(STDERR_FILENO, "\xff\xfe\x80");
    return 0;
  });
  EXPECT_EQ(outcome.err, "before, \xff\xfe\x80");
}

TEST(ProgramTest, ClosingStandardErrorEarlyDoesNotEndTheWait) {
  const Outcome outcome([] {
    writeAll(STDERR_FILENO, "bye");
    for (int descriptor = STDERR_FILENO; descriptor < 1024; descriptor++) {
      close(descriptor);
    }
    return 5;
  });
  EXPECT_TRUE(outcome.exitedWith(5));
  EXPECT_EQ(outcome.err, "before, bye");
}

TEST(ProgramTest, KilledChildIsReported) {
  const Outcome outcome([] { return raise(SIGKILL); });
  EXPECT_TRUE(WIFSIGNALED(outcome.status));
  EXPECT_EQ(WTERMSIG(outcome.status), SIGKILL);
}

TEST(ProgramTest, StoppedChildEndsTheWait) {
  const Outcome outcome([] {
    for (int descriptor = STDERR_FILENO; descriptor < 1024; descriptor++) {
      close(descriptor);
    }
    return raise(SIGSTOP);
  });
  EXPECT_TRUE(WIFSTOPPED(outcome.status));
  ASSERT_GT(outcome.result, 0);
  kill(outcome.result, SIGKILL);
  EXPECT_EQ(waitpid(outcome.result, nullptr, 0), outcome.result);
}

TEST(ProgramTest, PriorityIsLoweredInTheChildAlone) {
  const int before = getpriority(PRIO_PROCESS, 0);
  const Outcome outcome(
      [] { return dprintf(STDERR_FILENO, "%d", getpriority(PRIO_PROCESS, 0)) > 0 ? 0 : 1; }, 10);
  EXPECT_EQ(outcome.err, "before, " + std::to_string(std::min(before + 10, 19)));
  EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before);
}

TEST(ProgramTest, ProgramThatReturnsIsAnExitWith255) {
  std::string out;
  std::string err;
  int status;
  Returning returning;
  EXPECT_GT(execProgram(out, err, &status, 0, &returning), 0);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 255);
}

TEST(ProgramTest, FileIsLookedUpOnThePathAndGetsItsArguments) {
  std::string out;
  std::string err;
  int status;
  const char* const argv[] = {
      "a name", "-c", "printf '%s|' \"$0\" \"$@\" >&2; exit 4", "0", "a b", "", nullptr};
  EXPECT_GT(execProgram(out, err, &status, 0, "sh", const_cast<char* const*>(argv)), 0);
  EXPECT_EQ(err, "0|a b||");
  EXPECT_EQ(WEXITSTATUS(status), 4);
}

TEST(ProgramTest, UnknownFileIsAnExitWith255) {
  std::string out;
  std::string err;
  int status;
  const char* const argv[] = {"no-such-program", nullptr};
  EXPECT_GT(execProgram(out, err, &status, 0, argv[0], const_cast<char* const*>(argv)), 0);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 255);
  EXPECT_EQ(err, "");
}

TEST(ProgramTest, EachCallLeavesTwoDescriptorsOpen) {
  const size_t before = openDescriptors();
  Outcome([] { return 0; });
  Outcome([] { return 0; });
  EXPECT_EQ(openDescriptors(), before + 4);
}

TEST(ProgramTest, ChildInheritsTheWriteEndsAlone) {
  const size_t before = openDescriptors();
  const Outcome outcome([before] { return static_cast<int>(openDescriptors() - before); });
  EXPECT_TRUE(outcome.exitedWith(2));
}

TEST(ProgramTest, InterruptedReadIsTheEndOfTheReport) {
  gFailingCalls.read = 1;
  const Outcome outcome([] {
    writeAll(STDERR_FILENO, "unread");
    return 3;
  });
  EXPECT_TRUE(outcome.exitedWith(3));
  EXPECT_EQ(outcome.err, "before, ");
}

TEST(ProgramTest, InterruptedWaitIsAFailure) {
  gFailingCalls.waitpid = 1;
  const Outcome outcome([] { return 3; });
  EXPECT_EQ(outcome.result, -1);
  EXPECT_EQ(outcome.status, -7);
  EXPECT_GT(waitpid(-1, nullptr, 0), 0) << "the child is left to be waited for";
}

// The outcome with a system call that fails, and how many descriptors that leaves open.
void expectNothingRuns(size_t leftOpen) {
  const size_t before = openDescriptors();
  const Outcome outcome([] { return 0; });
  EXPECT_EQ(outcome.result, -1);
  EXPECT_EQ(outcome.status, -7);
  EXPECT_EQ(outcome.err, "before, ");
  EXPECT_EQ(openDescriptors(), before + leftOpen);
}

TEST(ProgramTest, NoPipeForStandardOutput) {
  gFailingCalls.pipe = 1;
  expectNothingRuns(0);
}

TEST(ProgramTest, NoPipeForStandardErrorLeavesTheOtherOpen) {
  gFailingCalls.pipe = 2;
  expectNothingRuns(2);
}

TEST(ProgramTest, NoChild) {
  gFailingCalls.fork = 1;
  expectNothingRuns(0);
}

}  // namespace
