// The device stays awake while the daemon works, and no longer.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/e2e/movie_facts.h"
#include "tests/e2e/scripted_ffmpeg.h"
#include "tests/support/fake_logind.h"
#include "tests/support/scoped_variable.h"
#include "tests/support/wait_until.h"

// The daemon's last keep-alive was at most a tick before the movie's end, and lasts 7.5 s.
TEST(SleepLockTest, IsHeldWhileAMovieRunsAndGoneEightSecondsAfter) {
  FakeLogind logind;
  const ScopedVariable systemBus("DBUS_SYSTEM_BUS_ADDRESS", logind.address());
  const ScriptedFfmpeg ffmpeg(
      "while [ ! -e \"$here/go\" ]; do sleep 0.02; done\n"
      "cp \"$input\" \"$output\"");
  InstalledSystem system(ffmpeg.daemon(50));
  const std::string in = system.files().write("in.mp4", std::string(1000000, 'x'));
  const auto movie =
      system.start("resizeMovie", movieRequest(in, system.files() / "out.mp4", R"("passes":1)"));
  EXPECT_TRUE(waitUntil([&] { return !logind.locks().empty(); }));
  EXPECT_THAT(logind.locks(),
              testing::ElementsAre("sleep|tarn-transcode|transcode is at work|block"));
  ffmpeg.here().write("go", "");
  EXPECT_EQ(system.client().wait(movie).reply, "{\"returnValue\":true}");
  EXPECT_TRUE(waitUntil([&] { return logind.locks().empty(); }, std::chrono::seconds(8)));
}
