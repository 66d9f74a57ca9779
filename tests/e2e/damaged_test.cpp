// Damaged and foreign files: the documented outcome, told at once, and the service goes on.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"

namespace {

using std::chrono::steady_clock;

constexpr char kNoReply[] = "org.freedesktop.DBus.Error.NoReply";

class DamagedTest : public testing::Test {
 protected:
  InstalledSystem::Result resize(const Bytes& input, int size = 100000) {
    EXPECT_TRUE(writeBytes(in, input));
    return system.call("resizeImage", resizeRequest(in, out, size));
  }

  Bytes picture() {
    JpegRecipe recipe;
    recipe.width = 320;
    recipe.height = 240;
    recipe.exif = ExifRecipe{.gps = true, .makerNoteBytes = 300, .thumbnail = true};
    return makeJpeg(recipe);
  }

  InstalledSystem system;
  const std::string in = system.files() / "in.jpg";
  const std::string out = system.files() / "out.jpg";
};

Bytes bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

TEST_F(DamagedTest, WhatIsNoJpegEndsTheServiceAndIsToldAtOnce) {
  const Bytes whole = picture();
  const Bytes cases[] = {{},
                         bytesOf("no picture"),
                         bytesOf("\x89PNG\r\n\x1a\n and more"),
                         {0xff, 0xd8, 0xff, 0xd9},
                         Bytes(whole.begin(), whole.begin() + 2)};
  for (const Bytes& input : cases) {
    ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
    const pid_t before = system.daemonPid();
    const auto start = steady_clock::now();
    EXPECT_EQ(resize(input).errorName, kNoReply);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(std::filesystem::file_size(out), 0u);

    EXPECT_EQ(system.call("getMinimalBitrate", "{}").reply, "{\"returnValue\": 204800}");
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_NE(system.daemonPid(), before);
  }
}

TEST_F(DamagedTest, OthersAreServedWhenAFileEndsTheService) {
  ASSERT_TRUE(writeBytes(in, bytesOf("no picture")));
  ASSERT_TRUE(writeBytes(system.files() / "good.jpg", picture()));
  const auto bad = system.start("resizeImage", resizeRequest(in, out, 1000));
  std::vector<std::shared_ptr<tarn::test::BusClient::Pending>> good;
  for (int i = 0; i < 10; ++i) {
    good.push_back(system.start(
        "resizeImage", resizeRequest(system.files() / "good.jpg",
                                     system.files() / (std::to_string(i) + ".jpg"), 100000)));
  }
  EXPECT_EQ(system.client().wait(bad).errorName, kNoReply);
  for (const auto& pending : good) {
    EXPECT_THAT(system.client().wait(pending).reply,
                testing::StartsWith(R"({"returnValue":true,"xSize":320,"ySize":240,)"));
  }
}

// Four are being encoded, one inside the other, when a fifth file ends the process.
TEST_F(DamagedTest, BystandersAreServedByTheNextProcess) {
  JpegRecipe recipe;
  recipe.width = 2000;
  recipe.height = 1500;
  ASSERT_TRUE(writeBytes(system.files() / "big.jpg", makeJpeg(recipe)));
  ASSERT_TRUE(writeBytes(in, bytesOf("no picture")));
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t before = system.daemonPid();
  std::vector<std::shared_ptr<tarn::test::BusClient::Pending>> bystanders;
  for (int i = 0; i < 4; ++i) {
    bystanders.push_back(system.start(
        "resizeImage", resizeRequest(system.files() / "big.jpg",
                                     system.files() / (std::to_string(i) + ".jpg"), 10000000)));
  }
  EXPECT_EQ(system.call("resizeImage", resizeRequest(in, out, 1000)).errorName, kNoReply);
  const std::string one = system.client().wait(bystanders[0]).reply;
  EXPECT_THAT(one, testing::StartsWith(R"({"returnValue":true,"xSize":2000,"ySize":1504,)"));
  const std::string picture = readFile(system.files() / "0.jpg");
  for (int i = 1; i < 4; ++i) {
    EXPECT_EQ(one, system.client().wait(bystanders[static_cast<size_t>(i)]).reply);
    EXPECT_EQ(picture, readFile(system.files() / (std::to_string(i) + ".jpg")));
  }
  EXPECT_NE(system.daemonPid(), before);
}

// The encode ends in an error and leaves an empty file, which is within any budget.
constexpr char kNothingCame[] = R"({"returnValue":true,"xSize":320,"ySize":240,"ImageSize":0})";

TEST_F(DamagedTest, APictureCutInItsDataGivesNothing) {
  const Bytes whole = picture();
  EXPECT_EQ(resize(Bytes(whole.begin(), whole.end() - 500)).reply, kNothingCame);
}

TEST_F(DamagedTest, APictureThatLacksItsEndMarkerAloneIsWhole) {
  const Bytes whole = picture();
  const std::string reply = resize(whole).reply;
  const Bytes wanted = readBytes(out);
  EXPECT_EQ(reply, resize(Bytes(whole.begin(), whole.end() - 2)).reply);
  EXPECT_EQ(wanted, readBytes(out));
}

// The encoder's library would end the process on a side of 65,504.
TEST_F(DamagedTest, ASideThatNoEncoderTakesGivesNothingAndTheServiceGoesOn) {
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t before = system.daemonPid();
  EXPECT_THAT(resize(makeJpeg({.width = 65490, .height = 16}), 100'000'000).reply,
              testing::EndsWith(R"("ImageSize":0})"));
  EXPECT_EQ(before, system.daemonPid());
}

TEST_F(DamagedTest, ADeviceIsNoOutput) {
  ASSERT_TRUE(writeBytes(in, picture()));
  EXPECT_EQ(system.call("resizeImage", resizeRequest(in, "/dev/full", 100000)).reply,
            R"({"returnValue":false,"errorText":"failed to open output file"})");
}

std::vector<Bytes> picturesOfManyKinds(const Bytes& fromCamera) {
  const JpegRecipe small = {.width = 200, .height = 136, .content = Content::Noise};
  std::vector<Bytes> kinds = {fromCamera};
  JpegRecipe recipe = small;
  recipe.progressive = true;
  kinds.push_back(makeJpeg(recipe));
  recipe = small;
  recipe.arithmetic = true;
  kinds.push_back(makeJpeg(recipe));
  recipe = small;
  recipe.restartRows = 1;
  recipe.subsampling = Subsampling::S422;
  kinds.push_back(makeJpeg(recipe));
  recipe = small;
  recipe.colours = Colours::YcckInverted;
  recipe.separateScans = true;
  kinds.push_back(makeJpeg(recipe));
  return kinds;
}

int mutationCount() {
  const char* count = getenv("PHOTO_MUTATIONS");
  return count ? atoi(count) : 400;
}

// Whatever the damage, the request ends: with a reply, or with a bus error where the JPEG library
// has ended the service on a header that it cannot read, and nowhere else.
TEST_F(DamagedTest, EveryMutationEnds) {
  const std::vector<Bytes> kinds = picturesOfManyKinds(picture());
  std::mt19937 random(1);
  const auto pick = [&random](size_t count) { return random() % count; };
  int replies = 0;
  int deaths = 0;
  for (int i = 0; i < mutationCount(); ++i) {
    Bytes input = kinds[static_cast<size_t>(i) % kinds.size()];
    const size_t mutations = 1 + pick(8);
    // Half of them in the headers, where they hurt most.
    const size_t reach = i % 2 == 0 ? input.size() : 700;
    for (size_t j = 0; j < mutations; ++j) {
      input[pick(reach)] = static_cast<uint8_t>(i % 3 == 0 ? 0xff : pick(256));
    }
    if (i % 7 == 0) input.resize(pick(input.size()));
    const auto result = resize(input, i % 3 == 0 ? 3000 : 100000);
    EXPECT_EQ(hasReadableHeader(input), result.ok) << i << ": " << result.errorMessage;
    if (result.ok) {
      EXPECT_THAT(result.reply, testing::StartsWith(R"({"returnValue":)"));
      ++replies;
    } else {
      EXPECT_EQ(result.errorName, kNoReply) << i << ": " << result.errorMessage;
      ++deaths;
    }
  }
  printf("%d replies, %d ends of the service\n", replies, deaths);
  EXPECT_GT(replies, mutationCount() / 5);
  EXPECT_GT(deaths, mutationCount() / 25);
}

}  // namespace
