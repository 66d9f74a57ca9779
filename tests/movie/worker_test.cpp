#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include "src/movie/mpeg_transcode_native_cmd.h"
#include "tests/movie/failing_calls.h"
#include "tests/movie/movie_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kSuccess[] = R"({"returnValue":true})";

// What is left of a worker once it has deleted itself.
struct Traces {
  std::atomic<int> cleanups = 0;
  std::atomic<size_t> repliesAtCleanup = 0;
  std::atomic<int> deleted = 0;
  std::atomic<int> probesDeleted = 0;
  std::atomic<int> deletedBeforeProbe = 0;
};

class Probe final : public MpegInfo {
 public:
  explicit Probe(Traces* theTraces) : MpegInfo(nullptr), traces(theTraces) {}
  ~Probe() override {
    ++traces->probesDeleted;
    traces->deletedBeforeProbe = traces->deleted.load();
  }
  LaunchResult run() override { return LaunchDone; }

 private:
  Traces* const traces;
};

// A transcoder whose passes are functions; a child ends with the result as its exit status.
class Worker final : public MpegTranscodeNativeCmd {
 public:
  Worker(const fake_vela::Request& theRequest, int passCount, std::function<int(int)> body,
         Traces* theTraces)
      : MpegTranscodeNativeCmd(new VSCtx(fake_vela::handle(), theRequest.message())),
        request(theRequest),
        passes(passCount),
        child(std::move(body)),
        traces(theTraces) {}
  ~Worker() override { ++traces->deleted; }

  using MpegTranscodeNativeCmd::dumpCmd;
  using TaskBase::ctx;

  int getPasses() override { return passes; }
  int exec(int pass) override { _exit(child(pass)); }
  void cleanup() override {
    ++traces->cleanups;
    traces->repliesAtCleanup = request.replies().size();
  }

 private:
  const fake_vela::Request& request;
  const int passes;
  const std::function<int(int)> child;
  Traces* const traces;
};

void closeAllFrom(int descriptor) {
  for (; descriptor < 1024; descriptor++) {
    close(descriptor);
  }
}

class WorkerTest : public MovieTest {
 protected:
  // Runs the passes to the end of the task. Each pass that starts is a line of passes().
  void run(int passCount, std::function<int(int)> body) {
    auto* worker = make(passCount, std::move(body));
    ASSERT_EQ(worker->run(), LaunchRunning);
    ASSERT_TRUE(request.waitUntilReleased());
    EXPECT_EQ(traces.deleted, 1);
  }
  Worker* make(int passCount, std::function<int(int)> body) {
    const std::string file = dir / "passes";
    auto noted = [file, body = std::move(body)](int pass) {
      const int notes = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      dprintf(notes, "%d ", pass);
      close(notes);
      return body(pass);
    };
    return new Worker(request, passCount, noted, &traces);
  }
  std::string passes() const { return readFile(dir / "passes"); }
  std::vector<std::string> dumps() const { return log.at(G_LOG_LEVEL_DEBUG); }

  fake_vela::Request request{"{}"};
  Traces traces;
};

TEST_F(WorkerTest, OnePass) {
  run(1, [](int) { return 0; });
  EXPECT_THAT(request.replies(), ElementsAre(kSuccess));
  EXPECT_EQ(passes(), "1 ");
  EXPECT_EQ(traces.cleanups, 1);
  EXPECT_EQ(traces.repliesAtCleanup, 1U);
}

TEST_F(WorkerTest, TwoPassesCountDownToOneReply) {
  run(2, [](int) { return 0; });
  EXPECT_THAT(request.replies(), ElementsAre(kSuccess));
  EXPECT_EQ(passes(), "2 1 ");
  EXPECT_EQ(traces.cleanups, 1);
}

TEST_F(WorkerTest, FailedFirstPassIsTheLast) {
  run(2, [](int pass) {
    dprintf(STDERR_FILENO, "pass %d: no", pass);
    return 1;
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code", "pass 2: no"));
  EXPECT_EQ(passes(), "2 ");
  EXPECT_EQ(traces.cleanups, 1);
  EXPECT_EQ(traces.repliesAtCleanup, 1U);
}

TEST_F(WorkerTest, FailedSecondPass) {
  run(2, [](int pass) {
    dprintf(STDERR_FILENO, "pass %d", pass);
    return pass == 1 ? 7 : 0;
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code", "pass 1"));
  EXPECT_EQ(passes(), "2 1 ");
  EXPECT_EQ(traces.cleanups, 1);
}

TEST_F(WorkerTest, FailureWithoutAWordHasNoDetail) {
  run(1, [](int) { return 255; });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code"));
}

TEST_F(WorkerTest, KilledChildIsAbortedAndNotDumped) {
  run(2, [](int) {
    dprintf(STDERR_FILENO, "about to");
    return raise(SIGKILL);
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker aborted", "about to"));
  EXPECT_EQ(passes(), "2 ");
  EXPECT_EQ(traces.cleanups, 1);
  EXPECT_THAT(dumps(), IsEmpty());
}

TEST_F(WorkerTest, StoppedChildIsAborted) {
  const std::string file = dir / "pid";
  run(1, [file](int) {
    const int pid = open(file.c_str(), O_WRONLY | O_CREAT, 0600);
    dprintf(pid, "%d", getpid());
    closeAllFrom(STDERR_FILENO);
    return raise(SIGSTOP);
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker aborted"));
  EXPECT_EQ(traces.cleanups, 1);

  const pid_t child = std::stoi(readFile(file));
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(WorkerTest, ChildThatClosesItsStandardErrorIsWaitedFor) {
  run(1, [](int) {
    dprintf(STDERR_FILENO, "said early");
    closeAllFrom(STDERR_FILENO);
    return 3;
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code", "said early"));
}

TEST_F(WorkerTest, LongReportIsTheDetailWhole) {
  const std::string text(200000, 'x');
  run(1, [&](int) {
    for (size_t sent = 0; sent < text.size();) {
      const ssize_t n = write(STDERR_FILENO, text.data() + sent, text.size() - sent);
      if (n <= 0) return 99;
      sent += static_cast<size_t>(n);
    }
    return 1;
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code", text));
}

TEST_F(WorkerTest, BytesThatAreNoTextAreReplacedInTheDetail) {
  run(1, [](int) {
    return write(STDERR_FILENO,
                 "a\xff"
                 "b\0c",
                 5) == 5
               ? 1
               : 0;
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code",
                                        "a\xEF\xBF\xBD"
                                        "b"));
}

TEST_F(WorkerTest, EachPassThatEndsByItselfIsDumped) {
  run(2, [](int pass) { return dprintf(STDERR_FILENO, "pass %d", pass) > 0 ? 0 : 1; });
  EXPECT_THAT(dumps(), ElementsAre("StdOut>>>>>>>>>>>>>>>>\n\nStdOut<<<<<<<<<<<<<<",
                                   "StdErr>>>>>>>>>>>>>>>>\npass 2\nStdErr<<<<<<<<<<<<<<",
                                   "StdOut>>>>>>>>>>>>>>>>\n\nStdOut<<<<<<<<<<<<<<",
                                   "StdErr>>>>>>>>>>>>>>>>\npass 1\nStdErr<<<<<<<<<<<<<<"));
}

TEST_F(WorkerTest, ChildRunsAtALowerPriority) {
  const int before = getpriority(PRIO_PROCESS, 0);
  run(1, [](int) {
    dprintf(STDERR_FILENO, "%d", getpriority(PRIO_PROCESS, 0));
    return 1;
  });
  EXPECT_EQ(onlyReply(request), failure("transcode worker exit with non zero code",
                                        std::to_string(std::min(before + 10, 19))));
}

TEST_F(WorkerTest, NoPassMeansNoChildAndNoReply) {
  for (const int passCount : {0, -1}) {
    traces.deleted = 0;
    run(passCount, [](int) { return 0; });
    EXPECT_THAT(request.replies(), IsEmpty());
    EXPECT_EQ(passes(), "");
    EXPECT_EQ(traces.cleanups, 0);
  }
}

TEST_F(WorkerTest, ForkThatFailsIsAnswered) {
  gFailingCalls.fork = 1;
  run(2, [](int) { return 0; });
  EXPECT_EQ(onlyReply(request), failure("fork transcode worker failed"));
  EXPECT_EQ(passes(), "");
  EXPECT_EQ(traces.cleanups, 0);
}

TEST_F(WorkerTest, PipeThatFailsForTheSecondPassIsAnswered) {
  gFailingCalls.pipe = 3;
  run(2, [](int) { return 0; });
  EXPECT_EQ(onlyReply(request), failure("fork transcode worker failed"));
  EXPECT_EQ(passes(), "2 ");
  EXPECT_EQ(traces.cleanups, 0);
}

TEST_F(WorkerTest, ThreadThatFailsIsNotAnswered) {
  const std::unique_ptr<Worker> worker(make(1, [](int) { return 0; }));
  gFailingCalls.pthreadCreate = 1;
  EXPECT_EQ(worker->run(), LaunchFailed);
  EXPECT_THAT(request.replies(), IsEmpty());
  worker->ctx->replyFail();
  EXPECT_EQ(onlyReply(request), failure("fork transcode service failed"));
}

TEST_F(WorkerTest, ThreadDeletesTheProbeAndThenTheTask) {
  auto* worker = make(1, [](int) { return 0; });
  worker->mpegInfo = new Probe(&traces);
  EXPECT_EQ(worker->run(), LaunchRunning);
  ASSERT_TRUE(waitUntil([this] { return traces.probesDeleted == 1 && traces.deleted == 1; }));
  EXPECT_EQ(traces.deletedBeforeProbe, 0);
}

TEST_F(WorkerTest, ThreadIsNobodysToJoin) {
  const std::string gate = dir / "gate";
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  auto* worker = make(1, [gate](int) { return readFile(gate) == "go" ? 0 : 1; });
  ASSERT_EQ(worker->run(), LaunchRunning);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_getattr_np(gLastThread, &attributes), 0);
  int state = PTHREAD_CREATE_JOINABLE;
  pthread_attr_getdetachstate(&attributes, &state);
  pthread_attr_destroy(&attributes);
  EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);

  writeFile(gate, "go");
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_THAT(request.replies(), ElementsAre(kSuccess));
}

TEST_F(WorkerTest, LaunchChildTellsHowItWent) {
  const std::unique_ptr<Worker> worker(make(1, [](int pass) { return pass == 1 ? 0 : 1; }));
  EXPECT_EQ(worker->launchChild(0), LaunchFailed);
  EXPECT_THAT(request.replies(), IsEmpty());
  EXPECT_EQ(worker->launchChild(1), LaunchDone);
  EXPECT_EQ(worker->launchChild(2), LaunchFailed);
  EXPECT_THAT(request.replies(), SizeIs(2));
}

TEST_F(WorkerTest, DumpCmdPrintsTheNameAndUpTo100Arguments) {
  testing::internal::CaptureStdout();
  const char* argv[] = {"prog", "-x", "a b", "%d", nullptr, "after"};
  Worker::dumpCmd("prog", argv);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "prog prog -x a b %d\n");

  testing::internal::CaptureStdout();
  std::vector<const char*> many(150, "x");
  Worker::dumpCmd("100%%", many.data());
  std::string expected = "100%";
  for (int i = 0; i < 100; i++) {
    expected += " x";
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected + "\n");
}

}  // namespace
