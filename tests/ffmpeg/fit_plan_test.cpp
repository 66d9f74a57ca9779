// The plan against an encoder that is a formula: what it asks for, in which order, and its verdict.
#include "platform/ffmpeg/plan/fit_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace {

using testing::ElementsAre;
using testing::Le;
using Kind = Attempt::Kind;
using Verdict = FitPlan::Verdict;

MediaFacts clip(double seconds = 10, int width = 640, int height = 480) {
  MediaFacts facts;
  facts.format = "mov,mp4,m4a,3gp,3g2,mj2";
  facts.durationUs = static_cast<int64_t>(seconds * 1e6);
  facts.sizeBytes = 5'000'000;
  facts.video.emplace();
  facts.video->codec = "h264";
  facts.video->pixelFormat = "yuv420p";
  facts.video->width = width;
  facts.video->height = height;
  facts.video->averageRate = facts.video->nominalRate = {25, 1};
  facts.audio.emplace_back();
  facts.audio[0].codec = "aac";
  facts.audio[0].sampleRateHz = 44100;
  facts.audio[0].channels = 2;
  return facts;
}

Options options(const std::vector<const char*>& words, const char* output = "o.mp4") {
  std::vector<const char*> argv = {"ffmpeg", "-i", "in.mov", "-y", "-acodec", "libfaac"};
  argv.insert(argv.end(), words.begin(), words.end());
  argv.push_back(output);
  Options parsed;
  std::string error;
  EXPECT_TRUE(parseOptions(static_cast<int>(argv.size()), argv.data(), &parsed, &error)) << error;
  return parsed;
}

// Bits a frame fall with the quantiser and grow with the pixels; rate control takes any quantiser
// from 2 to 31 that meets its bitrate. A log is one frame a frame.
class FormulaEncoder {
 public:
  explicit FormulaEncoder(double bitsPerPixelAtOne) : hardness(bitsPerPixelAtOne) {}

  double videoBits(const Rung& rung, double quantiser, double seconds) const {
    return hardness * rung.pixels() * rung.framesPerSecond * seconds / quantiser;
  }
  Outcome encode(const Attempt& attempt, double seconds) {
    kinds.push_back(attempt.kind);
    const double asked = static_cast<double>(attempt.videoBitsPerSecond) * seconds * missesBy;
    double quantiser = attempt.quantiser;
    if (attempt.kind != Kind::Constant) {
      quantiser = std::clamp(videoBits(attempt.picture, 1, seconds) / asked, 2.0, 31.0);
    }
    Outcome outcome;
    const double frames = attempt.picture.framesPerSecond * seconds;
    outcome.videoBytes = std::llround(videoBits(attempt.picture, quantiser, seconds) / 8);
    outcome.bytes = outcome.videoBytes + 2000 +
                    std::llround(static_cast<double>(attempt.sound.bitsPerSecond) * seconds / 8);
    if (attempt.stopBytes > 0 && outcome.bytes > attempt.stopBytes) {
      outcome.end = Outcome::End::Stopped;
    } else if (attempt.kind == Kind::Second && secondAborts) {
      outcome.end = Outcome::End::TooLow;
    }
    outcome.log = Complexity{1, static_cast<int>(frames) - 1, 1, 99, quantiser};
    return outcome;
  }
  // To the end of the plan.
  Verdict follow(FitPlan& plan) {
    Verdict verdict = Verdict::Encode;
    while (verdict == Verdict::Encode && kinds.size() < 20) {
      verdict = plan.take(last = encode(plan.attempt(), plan.budget().seconds));
      if (plan.keepsLast()) kept = last;
    }
    return verdict;
  }

  double hardness;
  double missesBy = 1;
  bool secondAborts = false;
  std::vector<Kind> kinds;
  Outcome last;
  Outcome kept;
};

TEST(FitPlanTest, AFirstPassThatFitsIsAll) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-b", "691k", "-ab", "76799", "-fs", "949999"}),
               clip());
  FormulaEncoder encoder(0.5);
  EXPECT_EQ(encoder.follow(plan), Verdict::Done);
  EXPECT_THAT(encoder.kinds, ElementsAre(Kind::First));
  EXPECT_THAT(encoder.kept.bytes, Le(949999));
  EXPECT_GT(encoder.kept.bytes, 949999 * 92 / 100);
}

TEST(FitPlanTest, H264IsMadeInTwoPassesDownToItsOwnCoarsest) {
  FitPlan plan(options({"-vcodec", "libx264", "-fs", "949999"}), clip());
  FormulaEncoder encoder(0.5);
  EXPECT_EQ(encoder.follow(plan), Verdict::Done);
  EXPECT_THAT(encoder.kinds, ElementsAre(Kind::First, Kind::Second));
  EXPECT_GT(encoder.kept.bytes, 949999 * 9 / 10);

  FitPlan hopeless(options({"-vcodec", "libx264", "-fs", "3000"}), clip());
  FormulaEncoder hard(9);
  EXPECT_EQ(hard.follow(hopeless), Verdict::Impossible);
  EXPECT_EQ(hopeless.attempt().quantiser, 113);
  EXPECT_GT(hopeless.smallestBytes(), 3000);
}

TEST(VideoCoderTest, QuantisersOfOneStepAreOne) {
  EXPECT_NEAR(quantiserOfQp(28), 7.94, 0.01);
  for (const int qp : {14, 28, 51}) {
    EXPECT_EQ(qpOfQuantiser(quantiserOfQp(qp)), qp);
  }
  EXPECT_EQ(qpOfQuantiser(1e6), 51);
}

TEST(PictureLadderTest, AllSizesStayWithinAWish) {
  Options asked = options({"-vcodec", "libx264"});
  asked.mostSize = {0, 300};
  const auto rungs = pictureLadder(asked, *clip().video);
  EXPECT_EQ(rungs.front().size, (PictureSize{400, 300}));
  EXPECT_LT(rungs[1].size.width, 400);
  const auto large = pictureLadder(options({"-vcodec", "libx264"}), *clip(10, 2160, 3840).video);
  EXPECT_EQ(large.front().size, (PictureSize{1080, 1920}));
  EXPECT_LE(sampleRungs(large, 5e5)[0].pixels(), 5e5);
}

TEST(FitPlanTest, ASecondPassMendsAFirstThatIsALittleOver) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-b", "691k", "-ab", "76799", "-fs", "949999"}),
               clip());
  FormulaEncoder encoder(0.5);
  encoder.missesBy = 1.2;
  EXPECT_EQ(encoder.follow(plan), Verdict::Done);
  EXPECT_THAT(encoder.kinds, ElementsAre(Kind::First, Kind::Second, Kind::Second));
  EXPECT_THAT(encoder.kept.bytes, Le(949999));
  EXPECT_GT(encoder.kept.bytes, 949999 * 9 / 10);
}

TEST(FitPlanTest, ASecondPassThatAbortsMakesWayForAQuantiser) {
  FitPlan plan(
      options({"-vcodec", "mpeg4", "-s", "640x480", "-b", "60k", "-ab", "8000", "-fs", "94999"}),
      clip());
  FormulaEncoder encoder(0.25);
  encoder.missesBy = 1.15;
  encoder.secondAborts = true;
  EXPECT_EQ(encoder.follow(plan), Verdict::Done);
  EXPECT_EQ(encoder.kinds.back(), Kind::Constant);
  EXPECT_THAT(encoder.kept.bytes, Le(94999));
}

TEST(FitPlanTest, AnOpenSizeGivesWayWhereItIsHopeless) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-b", "60k", "-ab", "8000", "-fs", "94999"}), clip());
  FormulaEncoder encoder(2);
  EXPECT_EQ(encoder.follow(plan), Verdict::Done);
  EXPECT_LT(plan.attempt().picture.size.width, 640);
  EXPECT_THAT(encoder.kept.bytes, Le(94999));
  EXPECT_LE(encoder.kinds.size(), 4U);
}

TEST(FitPlanTest, WhatCannotBeHadIsMeasuredAndCanBeHadForThat) {
  const std::vector<const char*> words = {"-vcodec", "mpeg4", "-s",  "640x480", "-r", "25",
                                          "-b",      "90k",   "-ab", "8000",    "-fs"};
  std::vector<const char*> tight = words;
  tight.push_back("94999");
  FitPlan plan(options(tight), clip());
  FormulaEncoder encoder(2);
  EXPECT_EQ(encoder.follow(plan), Verdict::Impossible);
  EXPECT_EQ(encoder.kinds.back(), Kind::Constant);
  EXPECT_EQ(plan.smallestBytes(), encoder.last.bytes);

  const int64_t asked = askFor(plan.budget(), plan.smallestBytes());
  for (const int64_t size : {asked, asked * 95 / 100 + 1}) {  // the caller keeps a twentieth back
    const std::string enough = std::to_string(size);
    std::vector<const char*> wide = words;
    wide[7] = "1000k";
    wide.push_back(enough.c_str());
    FitPlan again(options(wide), clip());
    FormulaEncoder same(2);
    EXPECT_EQ(same.follow(again), Verdict::Done) << size;
    EXPECT_LE(same.kept.bytes, size);
  }
}

TEST(FitPlanTest, RoomAboveTheCoarsestIsUsed) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-s", "640x480", "-r", "25", "-b", "60k", "-ab", "8000",
                        "-fs", "94999"}),
               clip());
  Outcome tooMuch;
  tooMuch.end = Outcome::End::Stopped;
  tooMuch.bytes = 200'000;
  ASSERT_EQ(plan.take(tooMuch), Verdict::Encode);
  EXPECT_EQ(plan.attempt().quantiser, 31);
  Outcome coarse;
  coarse.bytes = 50'000;
  coarse.videoBytes = 40'000;
  ASSERT_EQ(plan.take(coarse), Verdict::Encode);
  EXPECT_LT(plan.attempt().quantiser, 20);
  EXPECT_EQ(plan.attempt().kind, Kind::Constant);
  Outcome over = coarse;
  over.bytes = 100'000;
  over.videoBytes = 90'000;
  const int tooFine = plan.attempt().quantiser;
  EXPECT_EQ(plan.take(over), Verdict::Encode);
  EXPECT_FALSE(plan.keepsLast());
  EXPECT_GT(plan.attempt().quantiser, tooFine);
  EXPECT_EQ(plan.take(over), Verdict::Done);
  EXPECT_FALSE(plan.keepsLast());
}

TEST(FitPlanTest, WithoutALimitItIsOneEncode) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-ab", "64000"}), clip());
  EXPECT_EQ(plan.attempt().kind, Kind::Plain);
  EXPECT_FALSE(plan.wantsSample());
  Outcome outcome;
  outcome.bytes = 10'000'000;
  EXPECT_EQ(plan.take(outcome), Verdict::Done);
  EXPECT_TRUE(plan.keepsLast());
}

TEST(FitPlanTest, ASampleChoosesTheLargestBearablePicture) {
  const std::vector<const char*> words = {"-vcodec", "mpeg4", "-b",  "80k",
                                          "-ab",     "8000",  "-fs", "120000"};
  for (const double hardness : {0.3, 1.0, 3.0}) {
    FitPlan plan(options(words), clip());
    ASSERT_TRUE(plan.wantsSample());
    FormulaEncoder encoder(hardness);
    const auto rungs = sampleRungs(plan.ladder(), 1e9);
    std::array<Sample::PerQuantiser, 2> measured;
    for (size_t size = 0; size < 2; ++size) {
      for (size_t i = 0; i < kSampleQuantisers.size(); ++i) {
        const double bits = encoder.videoBits(rungs[size], kSampleQuantisers[i], 1);
        const double frames = rungs[size].framesPerSecond;
        measured[size][i] = {1, static_cast<int>(frames) - 1, bits / frames,
                             bits / frames * (frames - 1), 1.0 * kSampleQuantisers[i]};
      }
    }
    plan.sampled(Sample(rungs, measured));
    EXPECT_EQ(encoder.follow(plan), Verdict::Done);
    EXPECT_THAT(encoder.kinds, ElementsAre(Kind::First)) << hardness;
    const bool isTop = plan.attempt().picture.size == PictureSize{640, 480};
    // Rate control stays a little below what it may spend.
    EXPECT_LE(encoder.last.log->quantiser, isTop ? 21 : 15) << hardness;
    EXPECT_TRUE(isTop || encoder.last.log->quantiser > 7) << hardness;
  }
}

TEST(FitPlanTest, CoarsePicturesComeBeforeHeldFrames) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-b", "24k", "-an", "-fs", "30000"}), clip());
  const auto rungs = sampleRungs(plan.ladder(), 1e9);
  const FormulaEncoder encoder(1);
  std::array<Sample::PerQuantiser, 2> measured;
  const std::vector<Rung>& ladder = plan.ladder();
  const auto held = std::find_if(ladder.begin(), ladder.end(),
                                 [](const Rung& rung) { return rung.framesPerSecond < 25; });
  const Rung smallest = *(held - 1);
  // So hard that the smallest picture needs a quantiser of 24 at its full rate.
  const double scale = 8 * 26'000 / encoder.videoBits(smallest, 24, 10);
  for (size_t size = 0; size < 2; ++size) {
    for (size_t i = 0; i < kSampleQuantisers.size(); ++i) {
      const double bits = scale * encoder.videoBits(rungs[size], kSampleQuantisers[i], 1);
      measured[size][i] = {1, 24, bits / 25, bits / 25 * 24, 1.0 * kSampleQuantisers[i]};
    }
  }
  plan.sampled(Sample(rungs, measured));
  EXPECT_EQ(plan.attempt().picture.size, smallest.size);
  EXPECT_EQ(plan.attempt().picture.framesPerSecond, 25);
}

TEST(FitPlanTest, TheSecondRunGoesOnWhereTheFirstEnded) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-b", "60k", "-pass", "2", "-passlogfile", "o.mp4",
                        "-ab", "8000", "-fs", "94999"}),
               clip());
  const Rung picture = plan.ladder()[3];
  plan.continueFrom(picture, Complexity{1, 249, 1000, 2000, 8});
  EXPECT_EQ(plan.attempt().kind, Kind::Second);
  EXPECT_EQ(plan.attempt().picture.size, picture.size);
  EXPECT_FALSE(plan.wantsSample());
}

TEST(FitPlanTest, AChoiceThatIsNoneOfOursStartsFromScratch) {
  FitPlan plan(options({"-vcodec", "mpeg4", "-b", "60k", "-fs", "94999"}), clip());
  plan.continueFrom({{123, 45}, {25, 1}, 25}, std::nullopt);
  EXPECT_EQ(plan.attempt().kind, Kind::First);
}

TEST(FitPlanTest, ASourceThatIsAsAskedIsCopied) {
  MediaFacts source = clip();
  source.video->codec = "mpeg4";
  const std::vector<const char*> words = {"-vcodec", "mpeg4", "-b", "4000k", "-ab", "64000"};
  EXPECT_EQ(FitPlan(options(words), source).attempt().kind, Kind::Copy);

  FitPlan plan(options(words), source);
  Outcome failed;
  failed.end = Outcome::End::Stopped;
  EXPECT_EQ(plan.take(failed), Verdict::Encode);
  EXPECT_EQ(plan.attempt().kind, Kind::First);

  for (const std::vector<const char*>& more :
       std::vector<std::vector<const char*>>{{"-s", "320x240"},
                                             {"-r", "12"},
                                             {"-fs", "4999999"},
                                             {"-ss", "1"},
                                             {"-t", "5"},
                                             {"-ar", "22050"},
                                             {"-an"}}) {
    std::vector<const char*> other = words;
    other.insert(other.end(), more.begin(), more.end());
    EXPECT_NE(FitPlan(options(other), source).attempt().kind, Kind::Copy) << more[0];
  }
  source.video->quarterTurns = 1;
  EXPECT_NE(FitPlan(options(words), source).attempt().kind, Kind::Copy);
}

// Players of H.264 do both by themselves.
TEST(FitPlanTest, H264ThatIsTurnedOrOfFullRangeIsCopiedToo) {
  MediaFacts source = clip();
  source.video->codec = "h264";
  source.video->pixelFormat = "yuvj420p";
  source.video->fullRange = true;
  source.video->quarterTurns = 1;
  Options asked = options({"-vcodec", "libx264", "-acodec", "aac", "-fs", "90000000"});
  EXPECT_EQ(FitPlan(asked, source).attempt().kind, Kind::Copy);
  asked.mostSize = {source.video->height, source.video->width};  // upright
  EXPECT_EQ(FitPlan(asked, source).attempt().kind, Kind::Copy);
  asked.mostSize = {source.video->width, source.video->height};
  EXPECT_NE(FitPlan(asked, source).attempt().kind, Kind::Copy);
}

TEST(BudgetTest, TheSmallerOfSizeAndBitrates) {
  const auto most = [](const std::vector<const char*>& words, double seconds = 10) {
    return budgetOf(options(words), clip(seconds));
  };
  EXPECT_EQ(most({"-vcodec", "mpeg4"}).maxBytes, 0);
  EXPECT_EQ(most({"-vcodec", "mpeg4", "-b", "100k"}).maxBytes, 0);  // the sound is not bounded
  EXPECT_EQ(most({"-vcodec", "mpeg4", "-b", "100k", "-ab", "20000"}).maxBytes, 157500);
  EXPECT_TRUE(most({"-vcodec", "mpeg4", "-b", "100k", "-ab", "20000"}).isByRate);
  EXPECT_EQ(most({"-vcodec", "mpeg4", "-b", "100k", "-ab", "20000", "-fs", "900000"}).maxBytes,
            157500);
  EXPECT_EQ(most({"-vcodec", "mpeg4", "-b", "100k", "-ab", "20000", "-fs", "90000"}).maxBytes,
            90000);
  // Reckoned from the size, a share for sound included: the size is all that was asked for.
  EXPECT_EQ(most({"-vcodec", "mpeg4", "-b", "100k", "-ab", "20000", "-fs", "156250"}).maxBytes,
            156250);
  EXPECT_EQ(most({"-vcodec", "copy", "-b", "100k", "-ab", "20000"}).maxBytes, 0);
  EXPECT_EQ(most({"-vcodec", "mpeg4", "-b", "100k", "-ab", "20000"}, 0.1).maxBytes, 15750);
}

TEST(PictureLadderTest, FirstTheSizeThenTheRate) {
  const std::vector<Rung> rungs = pictureLadder(options({"-vcodec", "mpeg4"}), *clip().video);
  EXPECT_EQ(rungs.front().size, (PictureSize{640, 480}));
  EXPECT_EQ(rungs[1].size, (PictureSize{544, 408}));
  for (size_t i = 1; i < rungs.size(); ++i) {
    EXPECT_LT(rungs[i].pixels() * rungs[i].framesPerSecond,
              rungs[i - 1].pixels() * rungs[i - 1].framesPerSecond);
    EXPECT_EQ(rungs[i].size.width % 2 + rungs[i].size.height % 2, 0);
    EXPECT_NEAR(static_cast<double>(rungs[i].size.width) / rungs[i].size.height, 4.0 / 3, 0.02);
  }
  EXPECT_NEAR(rungs.back().rate.value(), 25.0 / 3, 0.01);
  EXPECT_GE(rungs.back().pixels(), 128 * 96);
}

std::string sizes(const std::vector<Rung>& rungs) {
  std::string text;
  for (const Rung& rung : rungs) {
    text += std::to_string(rung.size.width) + "@" + std::to_string(rung.rate.value()).substr(0, 4) +
            " ";
  }
  return text;
}

TEST(PictureLadderTest, H263HasItsOwnSizes) {
  const MediaFacts large = clip();
  EXPECT_EQ(
      sizes(pictureLadder(options({"-vcodec", "h263", "-r", "15.000"}, "o.3gp"), *large.video)),
      "352@15.0 176@15.0 128@15.0 128@7.50 ");
  EXPECT_EQ(sizes(pictureLadder(options({"-vcodec", "h263", "-s", "qcif", "-r", "10"}, "o.3gp"),
                                *large.video)),
            "176@10.0 ");
  EXPECT_EQ(sizes(pictureLadder(options({"-vcodec", "h263", "-s", "320x240", "-r", "12"}, "o.3gp"),
                                *large.video)),
            "352@12.0 176@12.0 128@12.0 ");
  EXPECT_EQ(sizes(pictureLadder(options({"-vcodec", "h263", "-r", "12"}, "o.3gp"),
                                *clip(10, 160, 120).video)),
            "176@12.0 128@12.0 ");
  MediaFacts fast = large;
  fast.video->averageRate = fast.video->nominalRate = {60, 1};
  EXPECT_NEAR(pictureLadder(options({"-vcodec", "h263"}, "o.3gp"), *fast.video)[0].rate.value(),
              29.97, 0.01);
}

TEST(PictureLadderTest, WhatIsAskedForStays) {
  const auto rungs =
      pictureLadder(options({"-vcodec", "mpeg4", "-s", "321x241", "-r", "10"}), *clip().video);
  EXPECT_EQ(sizes(rungs), "320@10.0 ");
  EXPECT_EQ(rungs[0].size.height, 240);
}

TEST(PictureLadderTest, UprightAndSquare) {
  MediaFacts turned = clip(10, 321, 240);
  turned.video->quarterTurns = 3;
  EXPECT_EQ(seenSize(*turned.video), (PictureSize{240, 320}));
  MediaFacts oblong = clip(10, 720, 576);
  oblong.video->pixelAspect = {16, 11};
  EXPECT_EQ(seenSize(*oblong.video), (PictureSize{1048, 576}));
}

TEST(SoundChoiceTest, TheFormThatTheBitrateIsEnoughFor) {
  const AudioFacts stereo = clip().audio[0];
  const auto aac = [&](int64_t bits, const std::vector<const char*>& more = {}) {
    std::vector<const char*> words = {"-vcodec", "mpeg4"};
    words.insert(words.end(), more.begin(), more.end());
    return chooseSound(options(words), stereo, bits);
  };
  EXPECT_EQ(aac(64000), (SoundChoice{64000, 0, 0}));
  EXPECT_EQ(aac(30000), (SoundChoice{30000, 0, 1}));
  EXPECT_EQ(aac(15000), (SoundChoice{15000, 22050, 1}));
  EXPECT_EQ(aac(10000), (SoundChoice{10000, 16000, 1}));
  EXPECT_EQ(aac(7000), (SoundChoice{7000, 8000, 1}));
  EXPECT_EQ(aac(100), (SoundChoice{6600, 8000, 1}));
  EXPECT_EQ(aac(100, {"-ar", "22050", "-ac", "1"}), (SoundChoice{10500, 22050, 1}));
}

TEST(SoundChoiceTest, NeverMoreThanTheSourceHas) {
  AudioFacts speech = clip().audio[0];
  speech.sampleRateHz = 8000;
  speech.channels = 1;
  const Options asked = options({"-vcodec", "mpeg4"});
  EXPECT_EQ(chooseSound(asked, speech, 64000), (SoundChoice{64000, 0, 0}));
  EXPECT_EQ(chooseSound(asked, speech, 15000), (SoundChoice{15000, 0, 0}));
  AudioFacts surround = clip().audio[0];
  surround.channels = 6;
  EXPECT_EQ(chooseSound(asked, surround, 64000), (SoundChoice{64000, 0, 2}));
}

TEST(SoundChoiceTest, AmrHasEightBitrates) {
  Options amr = options({"-vcodec", "h263"}, "o.3gp");
  amr.audioCodec = "libopencore_amrnb";
  const AudioFacts source = clip().audio[0];
  EXPECT_EQ(chooseSound(amr, source, 12200), (SoundChoice{12200, 8000, 1}));
  EXPECT_EQ(chooseSound(amr, source, 7000), (SoundChoice{6700, 8000, 1}));
  EXPECT_EQ(chooseSound(amr, source, 0), (SoundChoice{4750, 8000, 1}));
}

TEST(ComplexityTest, ReadsTheEncodersLog) {
  const auto log = parsePassLog(
      "in:0 out:0 type:1 q:236 itex:24714 ptex:0 mv:0 misc:1699 fcode:1 icount:286 hbits:107;\n"
      "in:1 out:1 type:2 q:472 itex:34 ptex:2040 mv:860 misc:1315 fcode:1 hbits:55;\n");
  ASSERT_TRUE(log);
  EXPECT_EQ(log->intraFrames, 1);
  EXPECT_EQ(log->interFrames, 1);
  EXPECT_EQ(log->intraBits, 26413);
  EXPECT_EQ(log->interBits, 4249);
  EXPECT_NEAR(log->quantiser, (2 * 26413 + 4 * 4249) / 30662.0, 1e-9);
  EXPECT_NEAR(log->spread, 1.0 / 3, 1e-9);
  const auto h264 = parsePassLog(
      "#options: 320x240 fps=25/1 timebase=1/25 bitdepth=8 cabac=1 ref=1;\n"
      "in:0 out:0 type:I dur:2 cpbdur:2 q:28.00 aq:19.89 tex:9000 mv:700 misc:300 imb:80 pmb:0;\n"
      "in:4 out:1 type:P dur:2 cpbdur:2 q:34.00 aq:21.10 tex:3000 mv:800 misc:200 imb:5;\n"
      "in:2 out:2 type:b dur:2 cpbdur:2 q:34.00 aq:22.30 tex:500 mv:400 misc:100 imb:0;\n");
  ASSERT_TRUE(h264);
  EXPECT_EQ(h264->intraFrames, 1);
  EXPECT_EQ(h264->interFrames, 2);
  EXPECT_EQ(h264->intraBits, 10000);
  EXPECT_EQ(h264->interBits, 5000);
  EXPECT_NEAR(h264->quantiser, 7.94 * (1 + 1.0 / 3), 0.01);
  EXPECT_FALSE(parsePassLog(""));
  EXPECT_FALSE(parsePassLog("#options: 320x240 fps=25/1\nno log of this kind;\n"));
}

}  // namespace
