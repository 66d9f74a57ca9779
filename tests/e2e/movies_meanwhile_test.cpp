// What goes on while a movie is made, and what becomes of it when the daemon dies.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

#include "tests/e2e/movie_facts.h"
#include "tests/e2e/power_service.h"
#include "tests/e2e/scripted_ffmpeg.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/movie_media.h"
#include "tests/support/processes.h"
#include "tests/support/wait_until.h"

namespace {

namespace fs = std::filesystem;
using testing::Each;

constexpr char kDone[] = "{\"returnValue\":true}";
// Makes nothing before the test says so.
constexpr char kHeld[] =
    ": > \"$here/started-${output##*/}\"\n"
    "while [ ! -e \"$here/go\" ]; do sleep 0.02; done\n"
    "cp \"$input\" \"$output\"";

class HeldMovieTest : public testing::Test {
 protected:
  HeldMovieTest() : system(ffmpeg.daemon(50)) {
    in = system.files().write("in.mp4", std::string(1000000, 'x'));
  }

  std::shared_ptr<tarn::test::BusClient::Pending> startMovie(const std::string& name) {
    auto pending =
        system.start("resizeMovie", movieRequest(in, system.files() / name, R"("passes":1)"));
    EXPECT_TRUE(waitUntil([&] { return fs::exists(ffmpeg.here() / ("started-" + name)); }));
    return pending;
  }
  void letGo() { ffmpeg.here().write("go", ""); }

  const ScriptedFfmpeg ffmpeg{kHeld};
  InstalledSystem system;
  std::string in;
};

TEST_F(HeldMovieTest, OtherRequestsAreAnsweredMeanwhile) {
  const auto movie = startMovie("out.mp4");
  JpegRecipe recipe;
  recipe.width = 320;
  recipe.height = 240;
  ASSERT_TRUE(writeBytes(system.files() / "in.jpg", makeJpeg(recipe)));
  EXPECT_THAT(system
                  .call("resizeImage", resizeRequest(system.files() / "in.jpg",
                                                     system.files() / "out.jpg", 100000))
                  .reply,
              testing::StartsWith(R"({"returnValue":true,"xSize":320,)"));
  EXPECT_EQ(system.call("getMinimalBitrate", "{}").reply, "{\"returnValue\": 204800}");
  EXPECT_THAT(system.call("getMovieInfo", infoRequest(in)).reply,
              testing::StartsWith(R"({"returnValue":true,"fileSize":1000000,)"));
  EXPECT_FALSE(system.client().isDone(movie));
  letGo();
  EXPECT_EQ(system.client().wait(movie).reply, kDone);
}

TEST_F(HeldMovieTest, MoviesAreMadeSideBySide) {
  const auto one = startMovie("one.mp4");
  const auto two = startMovie("two.mp4");  // has started although the first has not ended
  EXPECT_FALSE(system.client().isDone(one));
  letGo();
  EXPECT_EQ(system.client().wait(one).reply, kDone);
  EXPECT_EQ(system.client().wait(two).reply, kDone);
}

TEST_F(HeldMovieTest, KeepsTheDeviceAwakeAndEndsWhenTheMovieHas) {
  PowerService power(system.bus().address());
  const auto movie = startMovie("out.mp4");
  const pid_t daemon = system.daemonPid();
  const size_t before = power.payloads.size();
  EXPECT_TRUE(waitUntil([&] { return power.payloads.size() >= before + 10; }));
  EXPECT_THAT(power.payloads, Each(kKeepAlive));
  EXPECT_EQ(system.daemonPid(), daemon);
  letGo();
  EXPECT_EQ(system.client().wait(movie).reply, kDone);
  EXPECT_TRUE(waitUntil([&] { return system.daemonPid() == 0; }));
}

// The movie goes on where it is; all else is the next process's at once.
TEST_F(HeldMovieTest, AFileThatEndsTheDaemonLeavesTheMovieAndTheServiceGoingOn) {
  PowerService power(system.bus().address());
  const auto movie = startMovie("out.mp4");
  const std::string noPicture = system.files().write("in.jpg", "no picture");
  EXPECT_EQ(system.call("resizeImage", resizeRequest(noPicture, system.files() / "out.jpg", 1000))
                .errorName,
            "org.freedesktop.DBus.Error.NoReply");
  EXPECT_EQ(system.call("getMinimalBitrate", "{}").reply, "{\"returnValue\": 204800}");
  EXPECT_FALSE(system.client().isDone(movie));
  const size_t before = power.payloads.size();
  EXPECT_TRUE(waitUntil([&] { return power.payloads.size() >= before + 10; }));
  letGo();
  EXPECT_EQ(system.client().wait(movie).reply, kDone);
}

TEST(RealMovieTest, TwoAtOnceComeOutWhole) {
  InstalledSystem system;
  const std::string clip = movieClip({.seconds = 3, .size = "320x240"});
  const auto make = [&](const std::string& name, const char* members) {
    return system.start("resizeMovie", movieRequest(clip, system.files() / name, members));
  };
  const auto one = make("one.mp4", R"("maxBitrate":400000,"passes":2)");
  const auto two = make("two.3gp", R"("maxBitrate":200000,"picSize":"auto")");
  EXPECT_EQ(system.client().wait(one).reply, kDone);
  EXPECT_EQ(system.client().wait(two).reply, kDone);
  EXPECT_EQ(decodingErrors(system.files() / "one.mp4"), "");
  EXPECT_EQ(decodingErrors(system.files() / "two.3gp"), "");
}

// The bytes that the encoder has written so far, in a folder of its own beside the target.
uintmax_t bytesUnderWay(const std::string& folder) {
  std::error_code ignored;
  uintmax_t bytes = 0;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    if (!entry.is_directory(ignored)) continue;
    const uintmax_t size = fs::file_size(entry.path() / "output", ignored);
    if (!ignored) bytes += size;
  }
  return bytes;
}

TEST(RealMovieTest, AKilledDaemonTakesItsEncoderAlongAndLeavesTheOldFile) {
  InstalledSystem system;
  const std::string clip = movieClip({.seconds = 60, .size = "64x48", .audioCodec = ""});
  const std::string folder = system.files() / "made";
  fs::create_directory(folder);
  const std::string out = system.files().write("made/out.mp4", "old");
  const auto movie = system.start(
      "resizeMovie",
      movieRequest(clip, out, R"("picSize":"1920x1080","videoBitrate":8000000,"audioBitrate":1)"));
  ASSERT_TRUE(waitUntil([&] { return bytesUnderWay(folder) > 0; }));
  EXPECT_FALSE(processesAbout(folder + "/").empty());
  system.endDaemon();
  EXPECT_FALSE(system.client().wait(movie).ok);
  EXPECT_TRUE(waitUntil([&] { return processesAbout(folder + "/").empty(); }))
      << testing::PrintToString(processesAbout(folder + "/"));
  EXPECT_EQ(readFile(out), "old");
  EXPECT_THAT(namesIn(folder), testing::ElementsAre("out.mp4"));
}

}  // namespace
