// When the daemon starts, keeps the device awake and ends.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <chrono>

#include "tests/e2e/installed_system.h"
#include "tests/e2e/power_service.h"
#include "tests/e2e/spawned_program.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/wait_until.h"

namespace {

using std::chrono::steady_clock;
using testing::Each;
using testing::ElementsAre;

class LifetimeTest : public testing::Test {
 protected:
  std::vector<std::string> environment(std::vector<std::string> more = {}) {
    auto variables = system.bus().environment();
    variables.push_back("XDG_CACHE_HOME=" + (system.files() / "cache"));
    variables.emplace_back("TARN_LOG=-");
    variables.insert(variables.end(), more.begin(), more.end());
    return variables;
  }
  std::string logPath() { return system.files() / "log"; }

  InstalledSystem system;
};

TEST_F(LifetimeTest, EndsAtTheFirstIdleTickWithStatusZero) {
  PowerService power(system.bus().address());
  const auto start = steady_clock::now();
  SpawnedProgram daemon(installed("libexec/tarn-transcode/start"), environment(), logPath());
  const auto status = daemon.waitForEnd(20000);
  const auto lived = steady_clock::now() - start;
  ASSERT_TRUE(status);
  EXPECT_TRUE(WIFEXITED(*status));
  EXPECT_EQ(WEXITSTATUS(*status), 0);
  EXPECT_GE(lived, std::chrono::milliseconds(4900));
  EXPECT_LT(lived, std::chrono::milliseconds(9900));  // the second tick
  EXPECT_THAT(power.payloads, ElementsAre(kKeepAlive));
}

// Started by its request, so that no tick comes before the task.
TEST(ShortTickLifetimeTest, KeepsTheDeviceAwakeAtEveryTickWithALiveTask) {
  InstalledSystem system("/usr/bin/env TEST_TICK_MS=20 " SHORT_TICK_DAEMON);
  const std::string in = system.files() / "big.jpg";
  ASSERT_TRUE(writeBytes(in, makeJpeg({.width = 4000, .height = 3000})));
  PowerService power(system.bus().address());
  const auto pending =
      system.start("resizeImage", resizeRequest(in, system.files() / "out.jpg", 1000000));
  EXPECT_TRUE(waitUntil([&] { return power.payloads.size() >= 3; })) << power.payloads.size();
  EXPECT_TRUE(system.client().wait(pending).ok);
  EXPECT_TRUE(waitUntil([&] { return system.daemonPid() == 0; }));
  EXPECT_THAT(power.payloads, Each(kKeepAlive));
}

TEST_F(LifetimeTest, GoesOnWithoutAPowerService) {
  SpawnedProgram daemon(SHORT_TICK_DAEMON, environment({"TEST_TICK_MS=200"}), logPath());
  ASSERT_TRUE(system.client().waitForName(kTranscode, true));
  EXPECT_EQ(system.call("getMinimalBitrate", "{}").reply, "{\"returnValue\": 204800}");
  const auto status = daemon.waitForEnd(20000);
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 0);
}

TEST_F(LifetimeTest, FailsWithStatusZeroWhenTheNameIsTaken) {
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  SpawnedProgram second(installed("libexec/tarn-transcode/start"), environment(), logPath());
  const auto status = second.waitForEnd(20000);
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 0);
  EXPECT_THAT(readFile(logPath()), testing::HasSubstr("com.tarn.transcode"));
  EXPECT_TRUE(system.call("getMinimalBitrate", "{}").ok);
}

TEST_F(LifetimeTest, FailsWithStatusZeroWithoutABus) {
  SpawnedProgram daemon(
      installed("libexec/tarn-transcode/start"),
      {"TARN_LOG=-", "PATH=/usr/bin:/bin", "DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere",
       "XDG_CACHE_HOME=" + (system.files() / "cache")},
      logPath());
  const auto status = daemon.waitForEnd(20000);
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 0);
  EXPECT_FALSE(readFile(logPath()).empty());
}

// Under the sanitizers, memory that is lost shows in the exit status.
TEST_F(LifetimeTest, HundredPicturesLeaveNothingBehind) {
  JpegRecipe recipe;
  recipe.exif = ExifRecipe{.gps = true, .makerNoteBytes = 500, .thumbnail = true};
  recipe.iccBytes = 1000;
  const std::string in = system.files() / "in.jpg";
  ASSERT_TRUE(writeBytes(in, makeJpeg(recipe)));
  SpawnedProgram daemon(installed("libexec/tarn-transcode/start"), environment(), logPath());
  ASSERT_TRUE(system.client().waitForName(kTranscode, true));
  const auto resize = [&] {
    return system.call("resizeImage", resizeRequest(in, system.files() / "out.jpg", 100000));
  };
  ASSERT_TRUE(resize().ok);
  const long before = openDescriptors(daemon.pid());
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(resize().ok);
  }
  // The last pipeline is freed behind its reply.
  EXPECT_TRUE(waitUntil([&] {
    const long now = openDescriptors(daemon.pid());
    return now > 0 && now <= before;  // none: it has ended
  })) << before
      << " after the first picture";
  const auto status = daemon.waitForEnd(60000);
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 0) << readFile(logPath()).substr(0, 5000);
}

}  // namespace
