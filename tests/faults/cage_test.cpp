// Each process that reads a foreign file, taken over: it gets nowhere.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/ffmpeg/process/caged_call.h"
#include "tests/faults/attacks.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

using std::chrono_literals::operator""s;
using testing::HasSubstr;
using testing::Not;

const CagedLimits kLimits = {10s, int64_t{256} << 20};

TEST(CageTest, AReaderThatWasTakenOverGetsNowhere) {
  const LivingVictim prey;
  std::string answer;
  std::string error;
  const bool done = callCaged(
      STDIN_FILENO, kLimits, [&](int) { return toldAttack(prey.victim()); }, &answer, &error);
  EXPECT_TRUE(done) << error;
  EXPECT_EQ(answer, "tried");
  EXPECT_TRUE(prey.isUnharmed());
}

TEST(CageTest, AnEncoderThatWasTakenOverGetsNowhere) {
  const LivingVictim prey;
  const TempDir folder;
  const std::string clip = movieClip(ClipRecipe{});
  std::filesystem::create_directory(folder / "programs");
  std::filesystem::copy_file(ATTACKER, folder / "programs/ffmpeg");
  const RunResult result = runFfmpeg({"-i", clip, "-y", "-vcodec", "mpeg4", folder / "out.mp4"},
                                     {"PATH=" + folder / "programs", "ATTACK_INPUT=" + clip,
                                      "ATTACK_FOLDER=" + prey.victim().folder,
                                      "ATTACK_PROCESS=" + std::to_string(prey.victim().process)});
  EXPECT_THAT(result.err, HasSubstr("reads the input\nwrites the output\nstarts a thread\n"));
  EXPECT_THAT(result.err, HasSubstr("tried "));
  EXPECT_THAT(result.err, Not(HasSubstr("ALLOWED")));
  EXPECT_TRUE(prey.isUnharmed());
  std::filesystem::remove_all(folder / "programs");
  EXPECT_THAT(namesIn(folder.path()), testing::IsEmpty());
}

TEST(CageTest, AReaderThatDoesNotEndIsEnded) {
  std::string answer;
  std::string error;
  const CagedLimits brief = {std::chrono::milliseconds(200), kLimits.memoryBytes};
  for (const bool closesItsAnswer : {false, true}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(callCaged(
        STDIN_FILENO, brief,
        [&](int) -> std::string {
          if (closesItsAnswer) close(STDOUT_FILENO);
          for (;;) {
          }
        },
        &answer, &error));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  }
}

TEST(CageTest, TheEndsOfAReaderAreToldApart) {
  std::string answer;
  std::string error;
  const auto call = [&](const std::function<std::string(int)>& act) {
    return callCaged(STDIN_FILENO, kLimits, act, &answer, &error);
  };
  EXPECT_TRUE(call([](int) { return std::string(100000, 'x'); }));
  EXPECT_EQ(answer, std::string(100000, 'x'));
  EXPECT_FALSE(call([](int) { return std::string(3 << 20, 'x'); }));
  EXPECT_FALSE(call([](int) -> std::string { _exit(3); }));
  EXPECT_EQ(error, "its reader failed");
  EXPECT_FALSE(call([](int) -> std::string {
    raise(SIGKILL);
    return "";
  }));
  EXPECT_EQ(error, "its reader died of signal 9 (Killed)");
}

}  // namespace
