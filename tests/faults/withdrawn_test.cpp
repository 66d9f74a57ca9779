// The user ends the client while it waits, or somebody kills it: the work ends and nothing stays.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/movie_media.h"
#include "tests/support/processes.h"
#include "tests/support/wait_until.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

// It is 1 s on a machine that has nothing else to do.
constexpr auto kBounded = std::chrono::seconds(10);

class WithdrawnTest : public testing::TestWithParam<int> {
 protected:
  WithdrawnTest() {
    fs::create_directory(dir / "o");
    fs::create_directory(dir / "run");
    writeFile(dir / "o/out.mp4", "old");
    writeFile(dir / "o/out.jpg", "old");
  }

  pid_t startClient(std::vector<std::string> words) {
    const std::string program = installed("bin/tarn-transcode");
    words.insert(words.begin(), program);
    const pid_t child = fork();
    if (child != 0) return child;
    setenv("DBUS_SESSION_BUS_ADDRESS", system.bus().address().c_str(), 1);
    setenv("XDG_RUNTIME_DIR", (dir / "run").c_str(), 1);
    freopen((dir / "said").c_str(), "w", stderr);
    std::vector<char*> argv;
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }

  // Ends the client by the test's signal, and waits for its end.
  void end(pid_t client) {
    kill(client, GetParam());
    int status = 0;
    ASSERT_EQ(waitpid(client, &status, 0), client);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
    if (GetParam() != SIGKILL) {
      EXPECT_EQ(readFile(dir / "said"), "tarn-transcode: interrupted, the output is as it was\n");
    }
  }

  void expectPhotoGone() {
    const auto other = system.call("getMinimalBitrate", "{}");
    EXPECT_EQ(other.reply, R"({"returnValue": 204800})") << other.errorName << other.errorMessage;
    EXPECT_TRUE(waitUntil([&] { return namesIn(dir / "o").size() == 2; }))
        << testing::PrintToString(namesIn(dir / "o"));
    EXPECT_EQ(readFile(dir / "o/out.jpg"), "old");
  }

  InstalledSystem system;
  const TempDir& dir = system.files();
};

TEST_P(WithdrawnTest, AMovieUnderWay) {
  const std::string clip = movieClip({.seconds = 20, .size = "640x480"});
  const std::pair<const char*, const char*> cases[] = {
      {"1", "o"}, {"2", "o"}, {"2", "o/made/deep"}};
  for (const auto& [passes, folder] : cases) {
    const pid_t client = startClient({"resize-movie", "--quiet", clip, dir / folder + "/out.mp4",
                                      "--passes", passes, "--video-bitrate", "300k"});
    ASSERT_TRUE(waitUntil([&] { return !processesAbout(dir / folder + "/.tarn-ffmpeg").empty(); }));
    const auto start = steady_clock::now();
    end(client);
    EXPECT_TRUE(waitUntil([&] { return processesAbout(dir / "o").empty(); }));
    EXPECT_LT(steady_clock::now() - start, kBounded);
    // A killed client cannot take its folders away.
    if (GetParam() == SIGKILL && folder != std::string("o")) {
      EXPECT_THAT(namesIn(dir / folder), IsEmpty());
      fs::remove_all(dir / "o/made");
    }
    EXPECT_THAT(namesIn(dir / "o"), ElementsAre("out.jpg", "out.mp4"));
    EXPECT_EQ(readFile(dir / "o/out.mp4"), "old");
  }
}

TEST_P(WithdrawnTest, APhotoUnderWay) {
  // Progressive, which takes long to decode.
  static const Bytes picture =
      makeJpeg({.width = 1600, .height = 1200, .content = Content::Noise, .progressive = true});
  ASSERT_TRUE(writeBytes(dir / "in.jpg", picture));
  const pid_t client =
      startClient({"resize-image", "--always", dir / "in.jpg", dir / "o/out.jpg", "--size", "20M"});
  ASSERT_TRUE(waitUntil([&] {
    system.client().sync();
    return system.bus().log().find("trying res") != std::string::npos;
  }));
  end(client);
  expectPhotoGone();
}

// The service is in the way of all of them. Those in hand end with the first process, and no other
// is begun.
TEST_P(WithdrawnTest, ManyPhotosInHand) {
  fs::create_directory(dir / "o/many");
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t daemon = system.daemonPid();
  kill(daemon, SIGSTOP);
  std::vector<std::string> words = {"resize-image", "--always", "-j",        "2",
                                    "--size",       "1M",       "--out-dir", (dir / "o/many")};
  for (const char* name : {"1.jpg", "2.jpg", "3.jpg"}) {
    ASSERT_TRUE(writeBytes(dir / name, makeJpeg({.width = 640, .height = 480})));
    words.push_back(dir / name);
  }
  const pid_t client = startClient(words);
  EXPECT_TRUE(waitUntil([&] { return namesIn(dir / "o/many").size() == 2; }));
  kill(client, GetParam());
  int status = 0;
  ASSERT_EQ(waitpid(client, &status, 0), client);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
  EXPECT_TRUE(waitUntil([&] { return processesAbout(dir / "o/many").empty(); }));
  if (GetParam() != SIGKILL) {
    EXPECT_EQ(readFile(dir / "said"),
              "tarn-transcode: interrupted: 0 of 3 files are made, the other outputs are as they "
              "were\n");
  }
  kill(daemon, SIGCONT);
  EXPECT_TRUE(waitUntil([&] { return namesIn(dir / "o/many").empty(); }));
  EXPECT_TRUE(system.call("getMinimalBitrate", "{}").ok);
}

// By a signal only: when SIGKILL comes nobody knows whether the request has been sent, and one that
// was not leaves its file to the next command.
class QueuedPhotoTest : public WithdrawnTest {
 protected:
  pid_t waitForFit() {
    EXPECT_TRUE(system.client().waitForName("com.tarn.Fit1", true));
    return system.client().processOf("com.tarn.Fit1");
  }
  static std::string childrenOf(pid_t process) {
    const std::string number = std::to_string(process);
    return readFile("/proc/" + number + "/task/" + number + "/children");
  }
};

// The service comes to it when nobody waits any more.
TEST_P(QueuedPhotoTest, IsNotMade) {
  ASSERT_TRUE(writeBytes(dir / "in.jpg", makeJpeg({.width = 640, .height = 480})));
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t daemon = system.daemonPid();
  kill(daemon, SIGSTOP);
  const pid_t client =
      startClient({"resize-image", "--always", dir / "in.jpg", dir / "o/out.jpg", "--size", "1M"});
  EXPECT_TRUE(waitUntil([&] { return namesIn(dir / "o").size() == 3; }));
  end(client);
  kill(daemon, SIGCONT);
  expectPhotoGone();
}

#ifdef TARN_FIT
TEST_P(QueuedPhotoTest, AFitUnderWayIsCancelled) {
  static const Bytes picture =
      makeJpeg({.width = 3200, .height = 2400, .content = Content::Noise, .progressive = true});
  ASSERT_TRUE(writeBytes(dir / "in.jpg", picture));
  const pid_t client =
      startClient({"fit", "--quiet", dir / "in.jpg", dir / "o/out.jpg", "--size", "300k"});
  const pid_t service = waitForFit();
  ASSERT_TRUE(waitUntil([&] { return !childrenOf(service).empty(); }));
  end(client);
  EXPECT_TRUE(waitUntil([&] { return childrenOf(service).empty(); }));
  EXPECT_THAT(namesIn(dir / "o"), ElementsAre("out.jpg", "out.mp4"));
  EXPECT_EQ(readFile(dir / "o/out.jpg"), "old");
}
#endif

std::string nameOf(const testing::TestParamInfo<int>& instance) {
  return sigabbrev_np(instance.param);
}

INSTANTIATE_TEST_SUITE_P(Signals, WithdrawnTest, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGKILL),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Signals, QueuedPhotoTest, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         nameOf);

}  // namespace
