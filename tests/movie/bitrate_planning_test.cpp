#include "src/movie/mpeg_transcode_native.h"
#include "tests/movie/movie_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNoLength[] = "getOrignalLengthInMs() failed\n";
constexpr char kTooSmall[] = "can't reach targetBitrate, maxOutputSize too small?\n";

class Probe final : public MpegInfo {
 public:
  explicit Probe(int32_t lengthMs) : MpegInfo(nullptr) { clipLength = lengthMs; }
  LaunchResult run() override { return LaunchDone; }
};

class Planner final : public MpegTranscodeNative {
 public:
  explicit Planner(VSCtx* context) : MpegTranscodeNative(context) {
    inFile = "in.mov";
    outFile = "out.mp4";
    inputFileSize = 1000000;
    videoEncoder = "mpeg4";
    audioEncoder = "aac";
  }
  using MpegTranscodeNative::audioEncoder;
  using MpegTranscodeNative::bitrateAudio;
  using MpegTranscodeNative::bitrateVideo;
  using MpegTranscodeNative::clipLengthMs;
  using MpegTranscodeNative::inputFileSize;
  using MpegTranscodeNative::maxBitrate;
  using MpegTranscodeNative::maxOutputSize;
  using MpegTranscodeNative::picSize;
  using MpegTranscodeNative::videoEncoder;
  using MpegTranscodeNative::videoFrameRate;
  using TaskBase::ctx;

  LaunchResult run() override { return LaunchDone; }
};

class BitratePlanningTest : public MovieTest {
 protected:
  void expectPlanned(int32_t video, int32_t audio) {
    EXPECT_TRUE(planner.calculateBitrates());
    EXPECT_EQ(planner.bitrateVideo, video);
    EXPECT_EQ(planner.bitrateAudio, audio);
    EXPECT_THAT(warnings(), IsEmpty());
  }
  void expectRefused(const char* errorText) {
    EXPECT_FALSE(planner.calculateBitrates());
    EXPECT_THAT(warnings(), ElementsAre(errorText));
    planner.ctx->replyFail();
    EXPECT_EQ(onlyReply(request), failure(errorText));
  }
  // A budget that makes this the total of both streams.
  void setTotal(int32_t bitsPerSecond) {
    planner.maxOutputSize = bitsPerSecond / 8 * 10;
    planner.clipLengthMs = 10000;
  }
  void setRates(int32_t video, int32_t audio) {
    planner.bitrateVideo = video;
    planner.bitrateAudio = audio;
  }

  fake_vela::Request request{"{}"};
  Planner planner{new VSCtx(fake_vela::handle(), request.message())};
};

TEST_F(BitratePlanningTest, LengthOfTheInputIsTheProbes) {
  EXPECT_EQ(planner.getOrignalLengthInMs(), 0);
  Probe probe(1234);
  planner.mpegInfo = &probe;
  EXPECT_EQ(planner.getOrignalLengthInMs(), 1234);
}

TEST_F(BitratePlanningTest, BudgetOverTheClip) {
  planner.maxOutputSize = 1000000;
  planner.clipLengthMs = 10000;
  expectPlanned(691200, 76799);
}

TEST_F(BitratePlanningTest, BudgetOverTheWholeInput) {
  Probe probe(20000);
  planner.mpegInfo = &probe;
  planner.maxOutputSize = 2000000;
  expectPlanned(691200, 76799);
}

TEST_F(BitratePlanningTest, WithoutABudgetTheClipDoesNotCount) {
  Probe probe(10000);
  planner.mpegInfo = &probe;
  planner.clipLengthMs = 1;
  expectPlanned(691200, 76799);
}

TEST_F(BitratePlanningTest, ShortestClip) {
  planner.maxOutputSize = 100;
  planner.clipLengthMs = 1;
  expectPlanned(691200, 76799);
}

TEST_F(BitratePlanningTest, CeilingLowersTheTotalOnly) {
  setTotal(1600000);
  planner.maxBitrate = 800000;
  expectPlanned(691200, 76799);
  setRates(0, 0);
  planner.maxBitrate = 1600001;
  expectPlanned(1382400, 153599);
}

TEST_F(BitratePlanningTest, LogsWhatItPlanned) {
  setTotal(800000);
  EXPECT_TRUE(planner.calculateBitrates());
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE),
              ElementsAre("Transcode parameters in.mov -> out.mp4 , maxOutputSize = 1000000\n",
                          "audioEncoder aac 76799\n videoEncoder mpeg4 691200 \n"));
}

TEST_F(BitratePlanningTest, UnknownLengthIsRefused) {
  expectRefused(kNoLength);
}

TEST_F(BitratePlanningTest, UnknownLengthIsRefusedWithABudgetToo) {
  Probe probe(0);
  planner.mpegInfo = &probe;
  planner.maxOutputSize = 1000000;
  planner.clipLengthMs = -5;
  expectRefused(kNoLength);
}

TEST_F(BitratePlanningTest, NothingIsPlannedWhenBothRatesAreGiven) {
  setRates(1, -1);
  expectPlanned(1, -1);
}

TEST_F(BitratePlanningTest, NothingIsPlannedForCopies) {
  planner.videoEncoder = "copy";
  expectPlanned(0, 0);
  planner.videoEncoder = "mpeg4";
  planner.audioEncoder = "copy";
  expectPlanned(0, 0);
}

TEST_F(BitratePlanningTest, BudgetBelowTheLowestRatesIsRefused) {
  setTotal(31256);  // 30005 to plan
  expectRefused(kTooSmall);
}

TEST_F(BitratePlanningTest, LowestBudgetThatDoes) {
  planner.clipLengthMs = 8000;
  planner.maxOutputSize = 37501;  // 36000 to plan
  expectPlanned(32000, 4000);
  setRates(0, 0);
  planner.maxOutputSize = 37500;  // 35999 to plan
  expectRefused(kTooSmall);
}

TEST_F(BitratePlanningTest, NegativeAndOverflowingBudgetsAreRefused) {
  planner.clipLengthMs = 1;
  for (const int32_t size : {-1, INT32_MIN, INT32_MAX}) {
    setRates(0, 0);
    planner.maxOutputSize = size;
    EXPECT_FALSE(planner.calculateBitrates()) << size;
  }
}

TEST_F(BitratePlanningTest, UpperBoundsHold) {
  setTotal(160000000);
  expectPlanned(8000000, 256000);
}

TEST_F(BitratePlanningTest, GivenVideoRateIsClampedBeforeAudioGetsTheRest) {
  setTotal(8500000);  // 8159999 to plan
  setRates(9000000, 0);
  expectPlanned(8000000, 159999);
  setTotal(40000);  // 38399 to plan
  setRates(1, 0);
  expectPlanned(32000, 6399);
  setRates(-5, 0);
  expectPlanned(32000, 6399);
}

TEST_F(BitratePlanningTest, GivenVideoRateAboveTheTargetIsRefused) {
  setTotal(800000);
  setRates(768000, 0);
  expectRefused(kTooSmall);
}

TEST_F(BitratePlanningTest, GivenAudioRateIsClampedBeforeVideoGetsTheRest) {
  setTotal(800000);
  setRates(0, 300000);
  expectPlanned(511999, 256000);
  setRates(0, 1);
  expectPlanned(763999, 4000);
}

TEST_F(BitratePlanningTest, AmrNbTakesItsOwnRates) {
  planner.audioEncoder = "amrnb";
  const std::vector<int> cases[] = {{12200, 12200}, {12199, 10200}, {10199, 7950},     {9000, 7950},
                                    {7949, 7400},   {7399, 6700},   {6699, 5900},      {5899, 5150},
                                    {5149, 4750},   {4750, 4750},   {4749, 4750},      {3000, 4750},
                                    {-1, 4750},     {99999, 12200}, {INT32_MAX, 12200}};
  for (const auto& rates : cases) {
    setRates(100, rates[0]);
    EXPECT_TRUE(planner.calculateBitrates());
    EXPECT_EQ(planner.bitrateAudio, rates[1]) << rates[0];
    EXPECT_EQ(uint32_t(planner.bitrateVideo), 100U + uint32_t(rates[0]) - uint32_t(rates[1]));
  }
}

TEST_F(BitratePlanningTest, AmrNbIsSnappedForACopiedVideoToo) {
  planner.audioEncoder = "amrnb";
  planner.videoEncoder = "copy";
  setRates(0, 9000);
  expectPlanned(1050, 7950);
}

TEST_F(BitratePlanningTest, AmrNbIsSnappedAfterPlanning) {
  planner.audioEncoder = "amrnb";
  setTotal(800000);
  expectPlanned(691200 + 76799 - 12200, 12200);
}

TEST_F(BitratePlanningTest, SlowH263) {
  planner.videoEncoder = "h263";
  planner.picSize = "auto";
  setRates(299999, 1);
  EXPECT_TRUE(planner.calculateBitrates());
  EXPECT_EQ(planner.videoFrameRate, 15.0F);
  EXPECT_EQ(planner.picSize, "qcif");
}

TEST_F(BitratePlanningTest, FastH263) {
  planner.videoEncoder = "h263";
  planner.picSize = "auto";
  planner.videoFrameRate = -1;
  setRates(300000, 1);
  EXPECT_TRUE(planner.calculateBitrates());
  EXPECT_EQ(planner.videoFrameRate, 0.0F);
  EXPECT_EQ(planner.picSize, "cif");
}

TEST_F(BitratePlanningTest, H263IsSettledAfterTheAmrNbSnap) {
  planner.videoEncoder = "h263";
  planner.audioEncoder = "amrnb";
  planner.picSize = "auto";
  setRates(299000, 13200);
  EXPECT_TRUE(planner.calculateBitrates());
  EXPECT_EQ(planner.picSize, "cif");
}

TEST_F(BitratePlanningTest, WhatWasAskedForH263Stays) {
  planner.videoEncoder = "h263";
  planner.picSize = "sqcif";
  planner.videoFrameRate = 10;
  setRates(1, 1);
  EXPECT_TRUE(planner.calculateBitrates());
  EXPECT_EQ(planner.videoFrameRate, 10.0F);
  EXPECT_EQ(planner.picSize, "sqcif");
}

TEST_F(BitratePlanningTest, AutoIsLeftAloneForOtherCodecs) {
  planner.picSize = "auto";
  planner.videoFrameRate = -1;
  setRates(1, 1);
  EXPECT_TRUE(planner.calculateBitrates());
  EXPECT_EQ(planner.picSize, "auto");
  EXPECT_EQ(planner.videoFrameRate, -1.0F);
}

}  // namespace
