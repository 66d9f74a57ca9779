// Many requests at once: none lost, none run twice, others answered meanwhile.
#include <gmock/gmock.h>

#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/wait_until.h"

namespace {

using tarn::test::BusClient;

constexpr char kBitrate[] = "{\"returnValue\": 204800}";

// Calls getMinimalBitrate from that many clients at once; the payloads are "CLIENT-CALL". Returns
// how many calls got another answer than the right one.
int callFromClients(const InstalledSystem& system, int clients, int callsEach) {
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&system, &wrong, callsEach, i] {
      BusClient client(system.bus().address());
      for (int j = 0; j < callsEach; ++j) {
        const auto result = client.call(kTranscode, "/", kTranscode, "getMinimalBitrate",
                                        std::to_string(i) + "-" + std::to_string(j));
        if (result.reply != kBitrate) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return wrong;
}

std::string writePicture(const InstalledSystem& system, int width, int height) {
  JpegRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  const std::string path = system.files() / "in.jpg";
  EXPECT_TRUE(writeBytes(path, makeJpeg(recipe)));
  return path;
}

TEST(LoadTest, EndsBetweenRequestsLoseNoneAndRunNoneTwice) {
  const TempDir dir;
  const std::string log = dir / "replies";
  InstalledSystem system("/usr/bin/env TEST_TICK_MS=20 TEST_REPLY_LOG=" + log + " " +
                         SHORT_TICK_DAEMON);
  constexpr int kClients = 4;
  constexpr int kCallsEach = 1500;
  EXPECT_EQ(callFromClients(system, kClients, kCallsEach), 0);

  std::map<std::string, int> replies;
  std::istringstream lines(readFile(log));
  for (std::string line; std::getline(lines, line);) {
    ++replies[line.substr(line.find(' ') + 1)];  // behind the process id
  }
  EXPECT_EQ(replies.size(), static_cast<size_t>(kClients * kCallsEach));
  for (const auto& [id, count] : replies) {
    EXPECT_EQ(count, 1) << id;
  }
}

TEST(LoadTest, BitrateIsAnsweredWithinAnEncode) {
  InstalledSystem system;
  const std::string in = writePicture(system, 4000, 3000);
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const auto encode =
      system.start("resizeImage", resizeRequest(in, system.files() / "out.jpg", 10000000));
  EXPECT_EQ(system.call("getMinimalBitrate", "{}").reply, kBitrate);
  EXPECT_FALSE(system.client().isDone(encode));
  EXPECT_THAT(system.client().wait(encode).reply,
              testing::StartsWith(R"({"returnValue":true,"xSize":4000,"ySize":3008,)"));
}

TEST(LoadTest, NestedRequestsAreAllAnsweredRight) {
  InstalledSystem system;
  const std::string in = writePicture(system, 4000, 3000);
  std::vector<std::shared_ptr<BusClient::Pending>> pending;
  for (int i = 0; i < 20; ++i) {
    pending.push_back(system.start(
        "resizeImage",
        resizeRequest(in, system.files() / (std::to_string(i) + ".jpg"), 10000000 + i)));
  }
  const std::string one = system.client().wait(pending[0]).reply;
  EXPECT_THAT(one, testing::StartsWith(R"({"returnValue":true,"xSize":4000,"ySize":3008,)"));
  const std::string first = readFile(system.files() / "0.jpg");
  for (size_t i = 1; i < 20; ++i) {
    EXPECT_EQ(system.client().wait(pending[i]).reply, one);
    EXPECT_EQ(readFile(system.files() / (std::to_string(i) + ".jpg")), first);
  }
}

#ifndef TARN_SANITIZED  // memory and time mean nothing under a sanitizer

// A daemon that does not end while the test looks at it.
std::string lastingDaemon() {
  return "/usr/bin/env TEST_TICK_MS=600000 " SHORT_TICK_DAEMON;
}

TEST(LoadTest, MemoryIsBackAfterTenThousandCalls) {
  InstalledSystem system(lastingDaemon());
  ASSERT_EQ(callFromClients(system, 8, 125), 0);
  const pid_t daemon = system.daemonPid();
  const long before = residentKb(daemon);
  ASSERT_GT(before, 0);
  EXPECT_EQ(callFromClients(system, 8, 1250), 0);
  EXPECT_LE(residentKb(daemon), before + 2048);
}

TEST(LoadTest, SixtyBigPicturesStayInBounds) {
  InstalledSystem system(lastingDaemon());
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t daemon = system.daemonPid();
  const std::string in = writePicture(system, 4000, 3000);
  std::vector<std::shared_ptr<BusClient::Pending>> pending;
  for (int i = 0; i < 60; ++i) {
    pending.push_back(
        system.start("resizeImage",
                     resizeRequest(in, system.files() / (std::to_string(i % 20) + ".jpg"), 50000)));
  }
  long peakKb = 0;
  for (const auto& call : pending) {
    EXPECT_THAT(system.client().wait(call).reply, testing::StartsWith(R"({"returnValue":true,)"));
    int kb = 0;
    const std::string status = readFile("/proc/" + std::to_string(daemon) + "/status");
    const size_t peak = status.find("VmHWM:");
    ASSERT_NE(peak, std::string::npos);
    sscanf(status.c_str() + peak, "VmHWM: %d kB", &kb);
    peakKb = std::max<long>(peakKb, kb);
  }
  EXPECT_GT(peakKb, 10 * 1024);
  EXPECT_LT(peakKb, 600 * 1024);
}

// Of many at once no more stays than of one: their streaming threads leave nothing behind.
TEST(LoadTest, MemoryIsBackAfterTwentyPicturesAtOnce) {
  InstalledSystem system(lastingDaemon());
  const std::string in = writePicture(system, 2000, 1500);
  const auto request = [&](int i) {
    return resizeRequest(in, system.files() / (std::to_string(i) + ".jpg"), 50000);
  };
  ASSERT_THAT(system.call("resizeImage", request(0)).reply,
              testing::StartsWith(R"({"returnValue":true,)"));
  const pid_t daemon = system.daemonPid();
  const long afterOne = residentKb(daemon);
  ASSERT_GT(afterOne, 0);
  std::vector<std::shared_ptr<BusClient::Pending>> pending;
  for (int i = 0; i < 20; ++i) {
    pending.push_back(system.start("resizeImage", request(i)));
  }
  for (const auto& call : pending) {
    EXPECT_THAT(system.client().wait(call).reply, testing::StartsWith(R"({"returnValue":true,)"));
  }
  // Well before the threads, which keep some of it, end.
  EXPECT_TRUE(
      waitUntil([&] { return residentKb(daemon) <= afterOne + 2048; }, std::chrono::seconds(5)))
      << afterOne << " kB after one, " << residentKb(daemon) << " kB after twenty";
  EXPECT_EQ(system.daemonPid(), daemon);
}

// What the first requests left behind must not slow the last ones down.
TEST(LoadTest, AThousandSmallPicturesWithoutAPause) {
  InstalledSystem system(lastingDaemon());
  const std::string request =
      resizeRequest(writePicture(system, 160, 120), system.files() / "out.jpg", 100000);
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t daemon = system.daemonPid();
  const auto hundred = [&] {
    const double before = processorSeconds(daemon);
    for (int i = 0; i < 100; ++i) {
      const auto result = system.call("resizeImage", request);
      EXPECT_THAT(result.reply, testing::StartsWith(R"({"returnValue":true,)"));
    }
    return processorSeconds(daemon) - before;
  };
  const double first = hundred();
  EXPECT_GT(first, 0);
  for (int i = 0; i < 8; ++i) {
    hundred();
  }
  const double last = hundred();
  EXPECT_EQ(system.daemonPid(), daemon);
  // A busy machine's caches cost up to the same again; what stayed behind would cost many times
  // that.
  EXPECT_LE(last, 3 * first) << "first " << first << " s, last " << last << " s";
}

#endif

}  // namespace
