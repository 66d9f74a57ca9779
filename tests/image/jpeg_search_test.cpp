// The search for a size that fits, with real elements but for the encoder.
#include <filesystem>

#include "tests/image/resize_image_test.h"
#include "tests/support/log_capture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using JpegSearchTest = ResizeImageTest;

TEST_F(JpegSearchTest, FirstEncodeThatFitsIsTheLast) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 100000; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 100000));
  EXPECT_THAT(gFakeEncoder.attempts, ElementsAre(EncodeAttempt{1008, 752, 85}));
  EXPECT_EQ(std::filesystem::file_size(out), 100000u);
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), Contains("output size is 100000, target 100000"));
}

TEST_F(JpegSearchTest, OneAndAHalfTimesTheBudgetReducesTheQuality) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.quality == 85 ? 150000 : 99999; };
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 99999));
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{1008, 752, 56}));
}

TEST_F(JpegSearchTest, TwiceTheBudgetHalvesTheSides) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.width > 600 ? 200000 : 1000; };
  resize(100000);
  EXPECT_EQ(reply, success(512, 384, 1000));
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{512, 384, 85}));
}

// For a budget of 100000: 180000 bytes ask for quality 47, below 50; a level lower 120000 ask
// for 70.
int fitsAtTheSecondLevelOfReducedQuality(const EncodeAttempt& attempt) {
  if (attempt.width > 600) return 180000;
  return attempt.quality == 85 ? 120000 : 95000;
}

TEST_F(JpegSearchTest, EachLevelStartsAtTheDefaultQuality) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = fitsAtTheSecondLevelOfReducedQuality;
  resize(100000);
  EXPECT_EQ(reply, success(512, 384, 95000));
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{512, 384, 85},
                          EncodeAttempt{512, 384, 70}));
}

// The caps filter still has the level before when a level's quality is set.
TEST_F(JpegSearchTest, SetsTheQualityBeforeTheDimensions) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = fitsAtTheSecondLevelOfReducedQuality;
  resize(100000);
  EXPECT_THAT(gFakeEncoder.qualitySettings,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{1008, 752, 85},
                          EncodeAttempt{512, 384, 70}));
}

TEST_F(JpegSearchTest, GivesUpAfterFourLevelsOfTwoAttempts) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.quality == 85 ? 102000 : 100001; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, R"({"returnValue":false})");
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{1008, 752, 83},
                          EncodeAttempt{512, 384, 85}, EncodeAttempt{512, 384, 83},
                          EncodeAttempt{256, 192, 85}, EncodeAttempt{256, 192, 83},
                          EncodeAttempt{128, 96, 85}, EncodeAttempt{128, 96, 83}));
  EXPECT_EQ(std::filesystem::file_size(out), 100001u);
  EXPECT_EQ(log.at(G_LOG_LEVEL_MESSAGE).back(), std::string("- ") + kRun + " returning 2\n");
}

TEST_F(JpegSearchTest, QualityFiftyIsTriedAndFortyNineIsNot) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 170000; };
  resize(100000);
  EXPECT_THAT(gFakeEncoder.attempts, Contains(EncodeAttempt{1008, 752, 50}));
  gFakeEncoder.attempts.clear();
  resize(99999);
  EXPECT_EQ(gFakeEncoder.attempts.size(), 4u);
}

TEST_F(JpegSearchTest, QualityIsReckonedInWrappedIntegers) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.width > 600 ? 31000000 : 100; };
  // 85 x 30000000 does not fit 32 bits: the product is negative and nothing is tried at it.
  resize(30000000);
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{512, 384, 85}));
}

TEST_F(JpegSearchTest, BudgetsBelowOneFailAtEveryLevel) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 100; };
  for (const int size : {0, -1, -100}) {
    gFakeEncoder.attempts.clear();
    resize(size);
    EXPECT_EQ(reply, R"({"returnValue":false})");
    EXPECT_EQ(gFakeEncoder.attempts.size(), 4u);
  }
}

TEST_F(JpegSearchTest, EncoderWithoutQualityIsTakenAsEightyFive) {
  const FakeEncoderFactory encoder(false);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 100; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 100));
  EXPECT_THAT(gFakeEncoder.attempts, ElementsAre(EncodeAttempt{1008, 752, -1}));
  const auto lines = log.at(G_LOG_LEVEL_MESSAGE);
  EXPECT_THAT(lines, Not(Contains(HasSubstr("default quality"))));
  EXPECT_THAT(lines, Contains("trying res 1008x752, quality 85"));
}

TEST_F(JpegSearchTest, FailedEncodeIsJudgedByTheFileItLeaves) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 0; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 0));
  const auto lines = log.at(G_LOG_LEVEL_MESSAGE);
  EXPECT_THAT(lines, Contains("Error: told to fail\n"));
  EXPECT_THAT(lines, Contains(StartsWith("Debug details: ")));

  resize(-5);
  EXPECT_EQ(reply, R"({"returnValue":false})");
}

}  // namespace
