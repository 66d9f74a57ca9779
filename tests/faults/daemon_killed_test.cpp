// The daemon, or the bus, killed at any moment with photos and movies under way: every caller is
// told, nothing old is harmed, nothing stray is left, and the next request is served.
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/movie_media.h"
#include "tests/support/processes.h"
#include "tests/support/wait_until.h"

namespace {

using std::chrono::steady_clock;
using tarn::test::BusClient;

constexpr int kPhotos = 20;
constexpr int kMovies = 2;

// 1 s on a machine that has nothing else to do; the soak tells the longest.
constexpr auto kBounded = std::chrono::seconds(15);

bool isWholePicture(const std::string& bytes) {
  return bytes.size() > 4 && bytes.starts_with("\xff\xd8") && bytes.ends_with("\xff\xd9");
}

class PartKilledTest : public testing::Test {
 protected:
  PartKilledTest() {
    EXPECT_TRUE(writeBytes(dir / "in.jpg", makeJpeg({.width = 800, .height = 600})));
    std::filesystem::create_directory(dir / "o");
  }

  std::string movieOut(int number) const { return dir / "o/" + std::to_string(number) + ".mp4"; }
  std::string photoOut(int number) const { return dir / "o/" + std::to_string(number) + ".jpg"; }

  void startAll() {
    calls.clear();
    for (int i = 0; i < kMovies; ++i) {
      writeFile(movieOut(i), "the old movie");
      calls.push_back(system->start("resizeMovie", R"({"inFile":")" + clip + R"(","outFile":")" +
                                                       movieOut(i) + R"(","passes":2})"));
    }
    for (int i = 0; i < kPhotos; ++i) {
      calls.push_back(
          system->start("resizeImage", resizeRequest(dir / "in.jpg", photoOut(i), 100'000)));
    }
  }

  void waitAwhile() {
    const auto moment = steady_clock::now() + std::chrono::milliseconds(random() % 1500);
    waitUntil([&] { return steady_clock::now() >= moment; });
  }

  void expectAllTold(const char* errorName) {
    for (const auto& call : calls) {
      const auto result = system->client().wait(call);
      EXPECT_TRUE(result.ok || result.errorName == errorName) << result.errorName;
    }
  }

  void expectNothingStray() {
    EXPECT_TRUE(waitUntil([&] {
      const std::vector<std::string> names = namesIn(dir / "o");
      return processesAbout(dir / "o").empty() &&
             std::none_of(names.begin(), names.end(), [](const std::string& name) {
               return name.starts_with(".") || name.ends_with(".log");
             });
    })) << testing::PrintToString(namesIn(dir / "o"));
    for (int i = 0; i < kMovies; ++i) {
      const std::string movie = readFile(movieOut(i));
      EXPECT_TRUE(movie == "the old movie" || decodingErrors(movieOut(i)).empty());
    }
    for (int i = 0; i < kPhotos; ++i) {
      const std::string photo = readFile(photoOut(i));
      EXPECT_TRUE(photo.empty() || isWholePicture(photo)) << i << ": " << photo.size();
    }
  }

  const TempDir dir;
  std::unique_ptr<InstalledSystem> system = std::make_unique<InstalledSystem>();
  std::mt19937 random{5};
  const int rounds = getenv("TARN_SOAK") ? 200 : 3;
  const std::string clip = movieClip({.seconds = 2, .size = "320x240"});
  std::vector<std::shared_ptr<BusClient::Pending>> calls;
};

using DaemonKilledTest = PartKilledTest;
using BusKilledTest = PartKilledTest;

TEST_F(DaemonKilledTest, AtAnyMoment) {
  auto longest = steady_clock::duration::zero();
  for (int round = 0; round < rounds; ++round) {
    ASSERT_TRUE(system->call("getMinimalBitrate", "{}").ok);
    const pid_t daemon = system->daemonPid();
    startAll();
    waitAwhile();
    const auto start = steady_clock::now();
    kill(daemon, SIGKILL);
    expectAllTold("org.freedesktop.DBus.Error.NoReply");
    // Were all answered before, the bus may not have noticed yet.
    EXPECT_TRUE(waitUntil([&] { return system->daemonPid() != daemon; }));
    EXPECT_EQ(system->call("getMinimalBitrate", "{}").reply, R"({"returnValue": 204800})");
    longest = std::max(longest, steady_clock::now() - start);
    expectNothingStray();
  }
  EXPECT_LT(longest, kBounded);
  printf("%d kills, all told and served again within %lld ms\n", rounds,
         static_cast<long long>(
             std::chrono::duration_cast<std::chrono::milliseconds>(longest).count()));
}

TEST_F(BusKilledTest, AtAnyMoment) {
  for (int round = 0; round < rounds; ++round) {
    ASSERT_TRUE(system->call("getMinimalBitrate", "{}").ok);
    const pid_t daemon = system->daemonPid();
    startAll();
    waitAwhile();
    kill(system->bus().pid(), SIGKILL);
    expectAllTold("org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code18");
    EXPECT_TRUE(waitUntil([&] { return kill(daemon, 0) != 0; }));
    expectNothingStray();
    system = std::make_unique<InstalledSystem>();
  }
  EXPECT_EQ(system->call("getMinimalBitrate", "{}").reply, R"({"returnValue": 204800})");
}

}  // namespace
