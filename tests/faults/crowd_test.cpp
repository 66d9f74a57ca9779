// A crowd at once: everybody is answered, in bounded memory. TARN_CROWD=10000 makes it 10,000 small
// photos, 64 movies and 20 photos of 12 MP.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/movie_media.h"
#include "tests/support/processes.h"

namespace {

using tarn::test::BusClient;

constexpr int kPatienceMs = 3'600'000;
constexpr int kMostQueued = 4000;  // the service takes 4,096

class CrowdTest : public testing::Test {
 protected:
  CrowdTest() {
    std::filesystem::create_directory(dir / "o");
    EXPECT_TRUE(writeBytes(dir / "small.jpg", makeJpeg({.width = 160, .height = 120})));
    EXPECT_TRUE(writeBytes(dir / "big.jpg", makeJpeg({.width = 4000, .height = 3000})));
  }

  void ask(const std::string& method, const std::string& payload) {
    calls.push_back(system.client().start(kTranscode, "/", kTranscode, method,
                                          g_variant_new("(s)", payload.c_str()), kPatienceMs));
  }
  void askForPhoto(const std::string& in) {
    ask("resizeImage", resizeRequest(dir / in, out(".jpg"), 10'000'000));
  }
  std::string out(const std::string& ending) {
    return dir / "o/" + std::to_string(number++) + ending;
  }

  void lookAtMemory() {
    const std::vector<pid_t> encoders = processesAbout("file:" + dir.path());
    long children = 0;
    for (const pid_t pid : encoders) {
      children += residentKb(pid);
    }
    mostEncoders = std::max(mostEncoders, encoders.size());
    mostChildrenKb = std::max(mostChildrenKb, children);
    mostDaemonKb = std::max(mostDaemonKb, residentKb(system.daemonPid()));
  }

  void awaitAll() {
    for (const auto& call : calls) {
      while (!system.client().isDone(call)) {
        lookAtMemory();
        g_usleep(20'000);
      }
      const auto result = system.client().wait(call);
      EXPECT_THAT(result.reply, testing::StartsWith(R"({"returnValue":true)"))
          << result.errorName << ": " << result.errorMessage;
    }
    calls.clear();
  }

  InstalledSystem system;
  const TempDir& dir = system.files();
  std::vector<std::shared_ptr<BusClient::Pending>> calls;
  int number = 0;
  size_t mostEncoders = 0;
  long mostChildrenKb = 0;
  long mostDaemonKb = 0;
};

TEST_F(CrowdTest, EverybodyIsServed) {
  const char* wanted = getenv("TARN_CROWD");
  const int photos = wanted ? atoi(wanted) : 200;
  const int movies = wanted ? 64 : 4;
  const int big = wanted ? 20 : 4;
  const std::string clip = movieClip({.seconds = 1});
  for (int i = 0; i < movies; ++i) {
    ask("resizeMovie",
        R"({"inFile":")" + clip + R"(","outFile":")" + out(".mp4") + R"(","passes":1})");
  }
  for (int i = 0; i < big; ++i) {
    askForPhoto("big.jpg");
  }
  for (int i = 0; i < photos; ++i) {
    askForPhoto("small.jpg");
    if (std::ssize(calls) == kMostQueued) awaitAll();
  }
  awaitAll();
  EXPECT_EQ(namesIn(dir / "o").size(), static_cast<size_t>(number));
  printf("%d photos, %d of 12 MP, %d movies: daemon %ld MB, %zu encoders at once, %ld MB\n", photos,
         big, movies, mostDaemonKb / 1024, mostEncoders, mostChildrenKb / 1024);
  EXPECT_LE(mostEncoders, std::max(1U, std::thread::hardware_concurrency()));
#ifndef TARN_SANITIZED
  EXPECT_LT(mostDaemonKb, 600 * 1024);
  EXPECT_LT(mostChildrenKb, 800 * 1024);
#endif
}

}  // namespace
