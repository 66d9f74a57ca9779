// com.tarn.Fit1 on a bus of its own, with the real worker and with ones that behave badly.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/fit/fit_caller.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/private_bus.h"
#include "tests/support/processes.h"
#include "tests/support/wait_until.h"

namespace {

namespace fs = std::filesystem;
using tarn::test::BusClient;
using tarn::test::PrivateBus;
using testing::EndsWith;
using testing::HasSubstr;

// The service in a folder of its own, so that each test knows its processes.
class FitServiceTest : public testing::Test {
 protected:
  // `worker`: a script in the worker's place; empty: the real one.
  void start(const std::string& worker = "", int idleSeconds = 60) {
    fs::create_directory(dir / "service");
    fs::copy_file(FITD, dir / "service/fitd");
    fs::copy_file(FIT_MOVIE, dir / "service/fit-movie");
    if (worker.empty()) {
      fs::copy_file(FIT_WORKER, dir / "service/fit-worker");
    } else {
      writeFile(dir / "service/fit-worker", "#!/bin/sh\n" + worker);
      fs::permissions(dir / "service/fit-worker", fs::perms::owner_all);
    }
    PrivateBus::Options options;
    options.services = {
        {kName, dir / "service/fitd" + " --idle-seconds=" + std::to_string(idleSeconds)}};
    bus = std::make_unique<PrivateBus>(options);
    caller = std::make_unique<FitCaller>(bus->address());
  }
  std::string photo(int width = 640, int height = 480) {
    const std::string path = dir / "in.jpg";
    JpegRecipe recipe;
    recipe.width = width;
    recipe.height = height;
    recipe.content = Content::Noise;
    EXPECT_TRUE(writeBytes(path, makeJpeg(recipe)));
    return path;
  }
  std::string out(const std::string& name = "out.jpg") { return dir / name; }
  pid_t processOf(const std::string& program) {
    const auto found = processesAbout(dir / "service/" + program);
    return found.empty() ? 0 : found[0];
  }

  TempDir dir;
  std::unique_ptr<PrivateBus> bus;
  std::unique_ptr<FitCaller> caller;
};

TEST_F(FitServiceTest, MakesAPhotoFitAndTellsSoAlongAPathKnownBefore) {
  start();
  const std::string in = photo();
  const CallOutcome outcome = caller->fit(in, out(), 30000, "{'handle_token': <'mine'>}");
  ASSERT_TRUE(outcome.ok) << outcome.errorMessage;
  EXPECT_EQ(outcome.path, caller->pathOf("mine"));
  JobEnd end;
  ASSERT_TRUE(caller->awaitEnd(outcome.path, &end));
  ASSERT_TRUE(end.success) << end.message;
  EXPECT_EQ(fs::file_size(out()), end.numbers["bytes"]);
  EXPECT_LE(fs::file_size(out()), 30000u);
  EXPECT_FALSE(decodePixels(readBytes(out())).empty());
  EXPECT_GT(end.numbers["ssim"], 0.1);
  EXPECT_GT(end.numbers["encodes"], 0);
  EXPECT_TRUE(caller->awaitProperty(outcome.path, "State", "'running'"));
  const auto progress = caller->toldOf(outcome.path, "Progress");
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  caller->sync();
  EXPECT_EQ(caller->endCount(), 1u);
  EXPECT_THAT(caller->call(outcome.path, kJob, "Cancel", nullptr), EndsWith("UnknownMethod"));
}

TEST_F(FitServiceTest, WaitingCallersGetTheReplyOrTheErrorAtTheEnd) {
  start();
  const std::string in = photo();
  EXPECT_TRUE(caller->fit(in, out(), 30000, "{'wait': <true>}").ok);
  EXPECT_GT(fs::file_size(out()), 20000u);
  const CallOutcome tiny = caller->fit(in, out("tiny.jpg"), 100, "{'wait': <true>}");
  EXPECT_EQ(tiny.errorName, std::string(kError) + "LimitTooSmall");
  EXPECT_EQ(fs::file_size(out("tiny.jpg")), 0u);
}

TEST_F(FitServiceTest, MemoryFilesDoAndOffsetsStay) {
  start();
  const Bytes photoBytes = makeJpeg({.width = 640, .height = 480, .content = Content::Noise});
  const int in = memfd_create("in", MFD_CLOEXEC);
  const int result = memfd_create("out", MFD_CLOEXEC);
  ASSERT_EQ(write(in, photoBytes.data(), photoBytes.size()),
            static_cast<ssize_t>(photoBytes.size()));
  EXPECT_TRUE(caller->fitDescriptors(in, result, 20000, "{'wait': <true>}").ok);
  char start[2] = "";
  EXPECT_EQ(read(result, start, 2), 2);
  EXPECT_EQ(start[0], '\xFF');
  close(in);
  close(result);
}

TEST_F(FitServiceTest, AFailureLeavesWhatWasThere) {
  start();
  writeFile(out(), "what was there");
  writeFile(dir / "text", "no photo");
  const CallOutcome outcome = caller->fit(dir / "text", out(), 30000, "{'wait': <true>}");
  EXPECT_EQ(outcome.errorName, std::string(kError) + "NotAPhoto");
  EXPECT_EQ(readFile(out()), "what was there");
}

TEST_F(FitServiceTest, DescriptorsAreLookedAt) {
  start();
  const int file = open(photo().c_str(), O_RDONLY | O_CLOEXEC);
  const int target = open(out().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const int pathOnly = open(photo().c_str(), O_PATH | O_CLOEXEC);
  const int device = open("/dev/null", O_RDWR | O_CLOEXEC);
  const auto error = [&](int in, int output) {
    return caller->fitDescriptors(in, output, 1000, "{}").errorMessage;
  };
  EXPECT_EQ(error(file, file), "The output is not open for writing");
  EXPECT_EQ(error(target, target), "The input is not open for reading");
  EXPECT_EQ(error(pathOnly, target), "The input is not open for reading");
  EXPECT_EQ(error(device, target), "The input is no regular file");
  EXPECT_EQ(error(file, device), "The output is no regular file");
  EXPECT_EQ(error(file, -1), "The output comes with no descriptor");
  for (const int fd : {file, target, pathOnly, device}) {
    close(fd);
  }
}

TEST_F(FitServiceTest, InspectsAPhoto) {
  start();
  const int file = open(photo().c_str(), O_RDONLY | O_CLOEXEC);
  const std::string facts =
      caller->call("/com/tarn/Fit1", kName, "Inspect", g_variant_new("(h)", 0), file);
  EXPECT_THAT(facts, HasSubstr("'width': <uint32 640>"));
  EXPECT_THAT(facts, HasSubstr("'kind': <'photo'>"));
  close(file);
  const int text = open(dir.write("text", "x").c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(caller->call("/com/tarn/Fit1", kName, "Inspect", g_variant_new("(h)", 0), text),
            std::string(kError) + "NotAPhoto");
  close(text);
}

// Workers that wait for a file named go.
std::string waitingWorker(const TempDir& dir) {
  return "echo progress 250 >&2\nwhile [ ! -e " + dir / "go" + " ]; do /bin/sleep 0.02; done\n";
}

TEST_F(FitServiceTest, JobsWaitInTurnKnowTheirPlaceAndCanBeCancelled) {
  start(waitingWorker(dir));
  const std::string in = photo(32, 32);
  const long running = sysconf(_SC_NPROCESSORS_ONLN);
  std::vector<std::string> paths;
  for (long i = 0; i < running + 2; ++i) {
    paths.push_back(caller->fit(in, out("o" + std::to_string(i)), 1000).path);
  }
  EXPECT_TRUE(caller->awaitProperty(paths.back(), "QueuePlace", "2"));
  EXPECT_TRUE(caller->awaitProperty(paths[0], "Progress", "0.25"));
  JobEnd end;
  for (const size_t index : {paths.size() - 2, size_t{0}}) {  // one that waits, one that runs
    EXPECT_EQ(caller->call(paths[index], kJob, "Cancel", nullptr), "()");
    ASSERT_TRUE(caller->awaitEnd(paths[index], &end));
    EXPECT_EQ(end.error, std::string(kError) + "Cancelled");
  }
  EXPECT_TRUE(caller->awaitProperty(paths.back(), "State", "'running'"));
  EXPECT_EQ(fs::file_size(out("o0")), 0u);
}

// Half of what a quarter leaves is as far as is believed without another report.
TEST_F(FitServiceTest, ProgressGoesOnBetweenAWorkersReports) {
  start(waitingWorker(dir));
  const std::string path = caller->fit(photo(32, 32), out(), 1000).path;
  EXPECT_TRUE(caller->awaitProperty(path, "Progress", "0.25"));
  EXPECT_TRUE(caller->awaitProperty(path, "Progress", "0.625"));
  const auto progress = caller->toldOf(path, "Progress");
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  for (const double left : caller->toldOf(path, "SecondsLeft")) {
    EXPECT_GT(left, 0);
  }
}

TEST_F(FitServiceTest, AJobIsItsCallersAlone) {
  start(waitingWorker(dir));
  const std::string path = caller->fit(photo(32, 32), out(), 1000).path;
  FitCaller other(bus->address());
  EXPECT_EQ(other.call(path, kJob, "Cancel", nullptr), "org.freedesktop.DBus.Error.AccessDenied");
  EXPECT_EQ(other.call(path, "org.freedesktop.DBus.Properties", "Get",
                       g_variant_new("(ss)", kJob, "Progress")),
            "org.freedesktop.DBus.Error.AccessDenied");
  EXPECT_EQ(caller->call(path, "org.freedesktop.DBus.Properties", "Get",
                         g_variant_new("(ss)", kJob, "State")),
            "(<'running'>,)");
  EXPECT_EQ(caller
                ->fit(photo(32, 32), out(), 1000,
                      "{'handle_token': <'" + path.substr(path.rfind('/') + 1) + "'>}")
                .errorName,
            std::string(kError) + "InvalidOption");
}

TEST_F(FitServiceTest, AJobEndsWhenItsCallerLeaves) {
  start(waitingWorker(dir));
  {
    FitCaller leaving(bus->address());
    EXPECT_TRUE(leaving.fit(photo(32, 32), out(), 1000).ok);
    EXPECT_TRUE(waitUntil([&] { return processOf("fit-worker") != 0; }));
  }
  EXPECT_TRUE(waitUntil([&] { return processOf("fit-worker") == 0; }));
  EXPECT_EQ(fs::file_size(out()), 0u);
  EXPECT_NE(processOf("fitd"), 0);
}

TEST_F(FitServiceTest, AWorkerThatIsKilledIsItsJobsError) {
  start(waitingWorker(dir));
  const std::string path = caller->fit(photo(32, 32), out(), 1000).path;
  ASSERT_TRUE(waitUntil([&] { return processOf("fit-worker") != 0; }));
  kill(processOf("fit-worker"), SIGKILL);
  JobEnd end;
  ASSERT_TRUE(caller->awaitEnd(path, &end));
  EXPECT_EQ(end.error, std::string(kError) + "WorkerFailed");
}

TEST_F(FitServiceTest, AServiceThatIsKilledTakesItsWorkersAlongAndIsABusError) {
  start();
  BusClient client(bus->address());
  const std::string in = photo(3000, 2000);
  const std::string path = caller->fit(in, out(), 500000).path;
  ASSERT_TRUE(waitUntil([&] { return processOf("fit-worker") != 0; }));
  kill(processOf("fitd"), SIGKILL);
  EXPECT_TRUE(client.waitForName(kName, false));
  EXPECT_TRUE(waitUntil([&] { return processOf("fit-worker") == 0; }));
  EXPECT_THAT(fs::file_size(out()), testing::AnyOf(0u, testing::Gt(100000u)));
  EXPECT_TRUE(caller->fit(photo(), out(), 30000, "{'wait': <true>}").ok);  // the next one
}

// Whoever has taken over a worker may tell what it likes.
TEST_F(FitServiceTest, AWorkersWordIsNotTakenForIt) {
  struct Lie {
    const char* worker;
    const char* error;
  };
  const Lie lies[] = {
      {"echo result bytes=500 width=1 height=1 similarity=1 encodes=1 >&2", "WorkerFailed"},
      {"echo writing >&2; echo half; echo result bytes=999 >&2", "WorkerFailed"},
      {"echo writing >&2; echo half", "WorkerFailed"},
      {"/usr/bin/head -c 3000 /dev/zero; echo writing >&2; echo result bytes=3000 >&2",
       "WorkerFailed"},
      {"/usr/bin/head -c 100000 /dev/zero >&2", "WorkerFailed"},
      {"echo failure org.evil 0 text >&2", "WorkerFailed"},
      {"echo failure Damaged 0 words >&2", "Damaged"},
  };
  start("exit 0");
  int number = 0;
  for (const Lie& lie : lies) {
    writeFile(dir / "service/fit-worker", std::string("#!/bin/sh\n") + lie.worker + "\n");
    const std::string target = out(std::to_string(++number));
    const CallOutcome outcome = caller->fit(photo(32, 32), target, 1000, "{'wait': <true>}");
    EXPECT_EQ(outcome.errorName, kError + std::string(lie.error)) << lie.worker;
    EXPECT_EQ(fs::file_size(target), 0u) << lie.worker;
  }
}

TEST_F(FitServiceTest, TooManyJobsOfOneCallerAreRefused) {
  start(waitingWorker(dir));
  const std::string in = photo(32, 32);
  int accepted = 0;
  CallOutcome last;
  while ((last = caller->fit(in, out(), 1000)).ok && accepted < 100) {
    ++accepted;
  }
  EXPECT_EQ(accepted, 64);
  EXPECT_EQ(last.errorName, std::string(kError) + "TooManyJobs");
  FitCaller other(bus->address());
  EXPECT_TRUE(other.fit(in, out(), 1000).ok);
}

TEST_F(FitServiceTest, EndsWhenIdleAndLosesNothingMeanwhile) {
  start("echo failure Damaged 0 words >&2", 0);
  BusClient client(bus->address());
  const std::string in = photo(32, 32);
  for (int i = 0; i < 100; ++i) {
    const CallOutcome outcome = caller->fit(in, out(), 1000, "{'wait': <true>}");
    ASSERT_EQ(outcome.errorName, std::string(kError) + "Damaged") << i;
    if (i % 4 == 0) g_usleep(static_cast<gulong>(i) * 1000);  // at any moment of its end
  }
  EXPECT_TRUE(client.waitForName(kName, false));
  EXPECT_TRUE(waitUntil([&] { return processOf("fitd") == 0; }));
}

}  // namespace
