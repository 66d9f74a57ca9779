// Which parts of a movie are compared, how, and what is read of the outcome.
#include "platform/ffmpeg/encode/likeness.h"

#include <gmock/gmock.h>

#include "platform/ffmpeg/probe/media_facts.h"

namespace {

using testing::HasSubstr;

MediaFacts facts(int width, int height) {
  MediaFacts facts;
  facts.video.emplace();
  facts.video->width = width;
  facts.video->height = height;
  return facts;
}

std::string lineFor(const MediaFacts& about, PictureSize picture) {
  Options options;
  options.input = "in.mov";
  std::string text;
  for (const std::string& word :
       likenessLine(options, about, {3.6, 0.8}, "/w/best", {picture, {25, 1}, 25},
                    {"/usr/bin/ffmpeg", "", "", true, 1})) {
    text += word + " ";
  }
  return text;
}

TEST(LikenessTest, TheMiddleIsComparedFirst) {
  const auto parts = likenessParts(8, true);
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_DOUBLE_EQ(parts[0].start, 3.6);
  EXPECT_DOUBLE_EQ(parts[0].seconds, 0.8);
}

TEST(LikenessTest, PartsLieWithinTheClip) {
  for (const double seconds : {0.04, 0.5, 2.0, 600.0}) {
    for (const SamplePart& part : likenessParts(seconds, true)) {
      EXPECT_GE(part.start, 0);
      EXPECT_LE(part.start + part.seconds, seconds + 1e-9);
    }
  }
}

TEST(LikenessTest, WhereNothingCanBeJumpedToTheBeginningIs) {
  const auto parts = likenessParts(60, false);
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_EQ(parts[0].start, 0);
}

TEST(LikenessTest, BothAreShownAsLargeAsTheSource) {
  const std::string line = lineFor(facts(640, 480), {320, 240});
  EXPECT_THAT(line, HasSubstr("-ss 3.590000 -t 0.800000 "));
  EXPECT_THAT(line, HasSubstr("-i file:in.mov "));
  EXPECT_THAT(line, HasSubstr("-i file:/w/best "));
  EXPECT_THAT(line, HasSubstr("crop=320:240,scale=640:480:"));
  EXPECT_THAT(lineFor(facts(1920, 1080), {640, 360}), HasSubstr("crop=640:360,scale=1280:720:"));
}

TEST(LikenessTest, BarsAreCutOff) {
  EXPECT_THAT(lineFor(facts(640, 360), {352, 288}), HasSubstr("crop=352:198,scale=640:360:"));
}

TEST(LikenessTest, TheLastWordCounts) {
  EXPECT_EQ(parseLikeness("[Parsed_ssim_7] SSIM Y:0.964102 (14.4) U:0.9 V:0.9 All:0.97 (15.2)\n"),
            0.964102);
  EXPECT_EQ(parseLikeness("SSIM Y:0.1\nSSIM Y:0.200000 (1.2)"), 0.2);
  EXPECT_EQ(parseLikeness("SSIM Y:1.000000 (inf)"), 1);
  EXPECT_FALSE(parseLikeness("SSIM Y:nan (inf)"));
  EXPECT_FALSE(parseLikeness("SSIM Y:7.0"));
  EXPECT_FALSE(parseLikeness("nothing of the kind"));
}

}  // namespace
