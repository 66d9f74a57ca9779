// Any one process killed at any moment: the old file is whole, nothing stray is left.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

#include "platform/ffmpeg/process/encode_slots.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/processes.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

namespace {

using testing::ElementsAre;

const int kRounds = getenv("TARN_SOAK") ? 200 : 12;

class KilledTest : public testing::Test {
 protected:
  KilledTest() {
    std::filesystem::create_directory(folder / "o");
    std::filesystem::create_directory(folder / "run");
    writeFile(out, "the old file");
  }

  std::vector<std::string> arguments(const std::string& input) const {
    return {"-i", input, "-y", "-vcodec", "mpeg4", "-b", "300k", "-acodec", "libfaac", out};
  }

  void expectNothingStray() {
    EXPECT_TRUE(waitUntil([&] {
      return processesAbout(folder.path()).empty() && namesIn(folder / "o").size() == 1 &&
             namesIn(folder / "run/tarn-transcode").size() <= 1;
    })) << testing::PrintToString(namesIn(folder / "o"))
        << testing::PrintToString(namesIn(folder / "run/tarn-transcode"))
        << testing::PrintToString(processesAbout(folder.path()));
    EXPECT_THAT(namesIn(folder / "o"), ElementsAre("out.mp4"));
  }

  const TempDir folder;
  const std::string clip = movieClip({.seconds = 8, .size = "320x240"});
  // Takes so long that what happens meanwhile is seen, however busy the machine is.
  const std::string longClip = movieClip({.seconds = 20, .size = "640x480"});
  const std::string out = folder / "o/out.mp4";
  const std::string runtime = "XDG_RUNTIME_DIR=" + folder / "run";
  std::mt19937 random{7};
};

std::vector<std::string> firstPass(const std::string& clip, const std::string& out) {
  return {"-i", clip,           "-y", "-vcodec", "mpeg4", "-b",  "300k",     "-pass",
          "1",  "-passlogfile", out,  "-an",     "-f",    "mp4", "/dev/null"};
}

TEST_F(KilledTest, TheProgramAtAnyMoment) {
  for (int round = 0; round < kRounds; ++round) {
    writeFile(out, "the old file");
    StartedProgram program(arguments(clip), {runtime});
    poll(nullptr, 0, static_cast<int>(random() % 400));
    kill(program.pid(), SIGKILL);
    const RunResult result = program.wait();
    expectNothingStray();
    if (result.signal == SIGKILL && readFile(out) != "the old file") {
      EXPECT_EQ(decodingErrors(out), "");
    }
  }
}

TEST_F(KilledTest, TheEncoder) {
  StartedProgram program(arguments(longClip), {runtime});
  std::vector<pid_t> encoders;
  ASSERT_TRUE(waitUntil([&] {
    encoders = processesAbout(folder / "o/.tarn-ffmpeg");
    return !encoders.empty();
  }));
  kill(encoders.front(), SIGKILL);
  const RunResult result = program.wait();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, testing::HasSubstr("the encoder died of signal 9 (Killed)\n"));
  expectNothingStray();
  EXPECT_EQ(readFile(out), "the old file");
}

TEST_F(KilledTest, TheJanitor) {
  StartedProgram program(arguments(longClip), {runtime});
  std::vector<pid_t> janitors;
  ASSERT_TRUE(waitUntil([&] {
    janitors = processesNamed("ffmpeg-janitor", folder.path());
    return !janitors.empty();
  }));
  kill(janitors.front(), SIGKILL);
  EXPECT_EQ(program.wait().exitCode, 0);
  expectNothingStray();
  EXPECT_EQ(decodingErrors(out), "");
}

// Whoever waits for the end of our standard error must not wait for the janitor.
TEST_F(KilledTest, ItsCallerIsToldAtOnce) {
  StartedProgram program(arguments(longClip), {runtime});
  ASSERT_TRUE(waitUntil([&] { return !processesNamed("ffmpeg-janitor", folder.path()).empty(); }));
  kill(program.pid(), SIGKILL);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(program.wait().signal, SIGKILL);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

// The caller of both passes is a shell in the daemon's place.
TEST_F(KilledTest, TheCallerOfTheSecondPass) {
  ASSERT_EQ(runFfmpeg(firstPass(clip, out), {runtime}).exitCode, 0);
  ASSERT_TRUE(std::filesystem::exists(out + "-0.log"));
  const pid_t caller = fork();
  if (caller == 0) {
    StartedProgram program({"-i", clip, "-y", "-vcodec", "mpeg4", "-b", "300k", "-pass", "2",
                            "-passlogfile", out, "-acodec", "libfaac", out},
                           {runtime});
    program.wait();
    _exit(0);
  }
  EXPECT_TRUE(waitUntil([&] { return !processesAbout(folder / "o/.tarn-ffmpeg").empty(); }));
  kill(caller, SIGKILL);
  waitpid(caller, nullptr, 0);
  expectNothingStray();
  EXPECT_EQ(readFile(out), "the old file");
}

TEST_F(KilledTest, TheCallerBetweenTheTwoPasses) {
  const pid_t caller = fork();
  if (caller == 0) {
    StartedProgram program(firstPass(clip, out), {runtime});
    program.wait();
    for (;;) {
      pause();
    }
  }
  EXPECT_TRUE(waitUntil([&] {
    return std::filesystem::exists(out + "-2.log") &&
           processesNamed("ffmpeg", folder.path()).empty();
  }));
  EXPECT_TRUE(std::filesystem::exists(out + "-0.log"));
  kill(caller, SIGKILL);
  waitpid(caller, nullptr, 0);
  expectNothingStray();
  EXPECT_EQ(readFile(out), "the old file");
}

TEST_F(KilledTest, WhatWatchesThePassLogsGoesWithThem) {
  EXPECT_EQ(runFfmpeg(firstPass(clip, out), {runtime}).exitCode, 0);
  EXPECT_EQ(processesNamed("ffmpeg-guard", folder.path()).size(), 1U);
  for (const char* log : {"-0.log", "-2.log"}) {
    EXPECT_FALSE(processesNamed("ffmpeg-guard", folder.path()).empty());
    EXPECT_TRUE(std::filesystem::remove(out + log));
  }
  expectNothingStray();
}

// It was killed before the program had begun, and a sibling held the other end of its standard
// error at that moment. It waits for its turn while that closes.
TEST_F(KilledTest, TheCallerBeforeWeCouldLook) {
  const std::string queue = folder / "run/tarn-transcode";
  std::filesystem::create_directory(queue);
  auto all = std::make_unique<EncodeSlots>(queue);
  all->awaitTurn();
  all->begin(EncodeSlots::kAllBytes);
  const std::string before = readFile(queue + "/slots");
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const pid_t caller = fork();
  if (caller == 0) {
    const pid_t parent = getpid();
    if (fork() != 0) _exit(0);
    while (getppid() == parent) {
      poll(nullptr, 0, 1);
    }
    dup2(ends[1], STDERR_FILENO);
    setenv("XDG_RUNTIME_DIR", (folder / "run").c_str(), 1);
    execl(FFMPEG_UNDER_TEST, "ffmpeg", "-i", clip.c_str(), "-y", "-vcodec", "mpeg4", out.c_str(),
          nullptr);
    _exit(1);
  }
  waitpid(caller, nullptr, 0);
  EXPECT_TRUE(waitUntil([&] { return readFile(queue + "/slots") != before; }));
  close(ends[0]);
  close(ends[1]);
  all.reset();
  expectNothingStray();
  EXPECT_EQ(readFile(out), "the old file");
}

}  // namespace
