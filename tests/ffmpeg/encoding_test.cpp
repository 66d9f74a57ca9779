// Whole encodes by the system's ffmpeg: the results are probed, and decoded to their last frame.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::ElementsAre;

MediaFacts factsOf(const std::string& path) {
  MediaFacts facts;
  std::string error;
  EXPECT_TRUE(probeMovie(path, kThoroughProbe, &facts, &error)) << error;
  return facts;
}

class EncodingTest : public testing::Test {
 protected:
  // Encodes with `words` between input and output and returns what came out, which must decode.
  MediaFacts encode(const std::string& input, std::vector<std::string> words,
                    const std::string& name = "out.mp4") {
    words.insert(words.begin(), {"-i", input, "-y"});
    words.push_back(folder / name);
    const RunResult run = runFfmpeg(words);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    if (run.exitCode != 0) return {};
    EXPECT_EQ(decodingErrors(folder / name), "");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre(name));
    return factsOf(folder / name);
  }

  TempDir folder;
};

const std::vector<std::string> kPlain = {"-vcodec", "mpeg4",   "-b",  "300k",
                                         "-acodec", "libfaac", "-ab", "64000"};

TEST_F(EncodingTest, Mpeg4AndAacInMp4) {
  const MediaFacts out = encode(movieClip(ClipRecipe{}), kPlain);
  ASSERT_TRUE(out.video);
  EXPECT_EQ(out.video->codec, "mpeg4");
  EXPECT_EQ(out.video->width, 160);
  EXPECT_NEAR(out.video->averageRate.value(), 25, 0.01);
  ASSERT_EQ(out.audio.size(), 1U);
  EXPECT_EQ(out.audio[0].codec, "aac");
  EXPECT_NEAR(static_cast<double>(out.durationUs), 2e6, 1e5);
}

struct Input {
  const char* description;
  ClipRecipe recipe;
};

void PrintTo(const Input& input, std::ostream* out) {
  *out << input.description;
}

class EveryInputTest : public EncodingTest, public testing::WithParamInterface<Input> {};

TEST_P(EveryInputTest, BecomesAPlayableMp4) {
  const ClipRecipe& recipe = GetParam().recipe;
  const MediaFacts out = encode(movieClip(recipe), kPlain);
  ASSERT_TRUE(out.video);
  EXPECT_EQ(out.audio.size(), recipe.audioCodec.empty() ? 0U : 1U);
  EXPECT_EQ(out.video->pixelFormat, "yuv420p");
  EXPECT_FALSE(out.video->fullRange);
  EXPECT_NEAR(static_cast<double>(out.durationUs), 2e6, 2e5);
}

INSTANTIATE_TEST_SUITE_P(
    Files, EveryInputTest,
    testing::Values(
        Input{"mov", {.name = "a.mov", .audioCodec = "pcm_s16le"}},
        Input{"avi", {.name = "a.avi", .videoCodec = "mpeg4", .audioCodec = "libmp3lame"}},
        Input{"webm", {.name = "a.webm", .videoCodec = "libvpx", .audioCodec = "libvorbis"}},
        Input{"mkvSurround", {.name = "a.mkv", .more = {"-ac", "6"}}},
        Input{"transportStream", {.name = "a.ts"}}, Input{"silent", {.audioCodec = ""}},
        Input{"ntsc", {.rate = "30000/1001"}},
        Input{"fullRange", {.more = {"-pix_fmt", "yuvj420p", "-color_range", "pc"}}},
        Input{"motionJpeg",
              {.name = "a.avi",
               .videoCodec = "mjpeg",
               .audioCodec = "pcm_s16le",
               .more = {"-pix_fmt", "yuvj420p"}}}),
    [](const auto& instance) { return std::string(instance.param.description); });

TEST_F(EncodingTest, H263WithEitherSoundIn3gp) {
  const std::string clip = movieClip({.size = "320x180"});
  MediaFacts out =
      encode(clip,
             {"-s", "qcif", "-sws_flags", "fast_bilinear", "-vcodec", "h263", "-b", "120k", "-r",
              "15.000", "-acodec", "libopencore_amrnb", "-ab", "12200", "-ar", "8000", "-ac", "1"},
             "a.3gp");
  ASSERT_TRUE(out.video && out.audio.size() == 1);
  EXPECT_EQ(out.video->codec, "h263");
  EXPECT_EQ(out.video->width, 176);
  EXPECT_NEAR(out.video->averageRate.value(), 15, 0.01);
  EXPECT_EQ(out.audio[0].codec, "amr_nb");
  EXPECT_EQ(out.audio[0].sampleRateHz, 8000);
  std::filesystem::remove(folder / "a.3gp");

  out = encode(clip,
               {"-vcodec", "h263", "-b", "400k", "-acodec", "libfaac", "-ab", "32000", "-ar",
                "16000", "-ac", "1"},
               "b.3gp");
  ASSERT_TRUE(out.video && out.audio.size() == 1);
  EXPECT_EQ(out.video->width, 352);
  EXPECT_EQ(out.video->height, 288);
  EXPECT_EQ(out.audio[0].layout, "mono");
  EXPECT_EQ(out.audio[0].sampleRateHz, 16000);
}

// The brightness of one frame at a point, in the middle of a 4×4 block.
int brightness(const std::string& path, int x, int y) {
  const std::string text =
      runSystemFfmpeg({"-i", path, "-vf",
                       "crop=4:4:" + std::to_string(x) + ":" + std::to_string(y) +
                           ",signalstats,metadata=print:key=lavfi.signalstats.YAVG:file=-",
                       "-frames:v", "1", "-f", "null", "-"});
  const size_t at = text.find("YAVG=");
  return at == std::string::npos ? -1 : static_cast<int>(strtod(text.c_str() + at + 5, nullptr));
}

std::string whiteClip(const std::string& name, const std::string& size) {
  return movieClip(name, {"-f", "lavfi", "-i", "color=white:size=" + size + ":rate=10:duration=1",
                          "-c:v", "libx264", "-pix_fmt", "yuv420p"});
}

TEST_F(EncodingTest, H263KeepsTheShapeWithBlackBars) {
  encode(whiteClip("wide.mp4", "320x180"), {"-vcodec", "h263", "-b", "400k", "-an"}, "a.3gp");
  const std::string out = folder / "a.3gp";
  // 352×198 in the middle of 352×288.
  EXPECT_LT(brightness(out, 176, 20), 40);
  EXPECT_GT(brightness(out, 176, 60), 200);
  EXPECT_GT(brightness(out, 4, 144), 200);
  EXPECT_LT(brightness(out, 176, 264), 40);
}

TEST_F(EncodingTest, H263KeepsTheShapeOfOblongPixels) {
  const std::string clip = movieClip("oblong.mp4", {"-i", whiteClip("oblong-base.mp4", "180x180"),
                                                    "-vf", "setsar=16/9", "-c:v", "libx264"});
  encode(clip, {"-vcodec", "h263", "-b", "400k", "-an"}, "a.3gp");
  EXPECT_LT(brightness(folder / "a.3gp", 176, 20), 40);
  EXPECT_GT(brightness(folder / "a.3gp", 4, 144), 200);
}

TEST_F(EncodingTest, RotatedClipsComeOutUpright) {
  const std::string clip = movieClip("rotated.mp4", {"-i", movieClip({.size = "320x180"}), "-c",
                                                     "copy", "-metadata:s:v:0", "rotate=90"});
  const MediaFacts out = encode(clip, kPlain);
  ASSERT_TRUE(out.video);
  EXPECT_EQ(out.video->width, 180);
  EXPECT_EQ(out.video->height, 320);
}

TEST_F(EncodingTest, OddSizesAreMadeEven) {
  const std::string clip = movieClip({.name = "odd.mkv",
                                      .size = "161x121",
                                      .videoCodec = "libx264",
                                      .more = {"-pix_fmt", "yuv444p"}});
  MediaFacts out = encode(clip, kPlain);
  ASSERT_TRUE(out.video);
  EXPECT_EQ(out.video->width, 160);
  EXPECT_EQ(out.video->height, 120);
  out = encode(clip, {"-s", "99x77", "-vcodec", "mpeg4", "-an"});
  EXPECT_EQ(out.video->width, 98);
  EXPECT_EQ(out.video->height, 76);
  EXPECT_TRUE(out.audio.empty());
}

TEST_F(EncodingTest, ClipRange) {
  const std::string clip = movieClip({.seconds = 4, .more = {"-g", "50"}});
  for (const char* codec : {"mpeg4", "copy"}) {
    const MediaFacts out = encode(clip, {"-vcodec", codec, "-acodec", "aac", "-ab", "64000", "-ss",
                                         "1.500000", "-t", "1.000000"});
    ASSERT_TRUE(out.video) << codec;
    EXPECT_NEAR(static_cast<double>(out.durationUs), 1e6, 1.5e5) << codec;
  }
}

TEST_F(EncodingTest, TheClipBeginsWithTheAskedFrame) {
  const std::string clip = movieClip(
      "dawn.mp4", {"-f", "lavfi", "-i", "color=black:size=64x64:rate=25:duration=1.2", "-f",
                   "lavfi", "-i", "color=white:size=64x64:rate=25:duration=1", "-filter_complex",
                   "[0][1]concat=n=2", "-c:v", "libx264", "-g", "100", "-pix_fmt", "yuv420p"});
  encode(clip, {"-vcodec", "mpeg4", "-ss", "1.160000"}, "before.mp4");
  EXPECT_LT(brightness(folder / "before.mp4", 30, 30), 60);
  std::filesystem::remove(folder / "before.mp4");
  encode(clip, {"-vcodec", "mpeg4", "-ss", "1.200000"}, "after.mp4");
  EXPECT_GT(brightness(folder / "after.mp4", 30, 30), 200);
}

TEST_F(EncodingTest, CopiedStreams) {
  const MediaFacts out =
      encode(movieClip(ClipRecipe{}), {"-vcodec", "copy", "-acodec", "copy"}, "out.mov");
  ASSERT_TRUE(out.video && out.audio.size() == 1);
  EXPECT_EQ(out.video->codec, "h264");
}

TEST_F(EncodingTest, OnlyOneStreamOfAKindAndNoMetadata) {
  const std::string plain = movieClip(ClipRecipe{});
  const std::string clip = movieClip("rich.mkv", {"-i", plain, "-i", plain, "-map", "0", "-map",
                                                  "1", "-c", "copy", "-metadata", "title=secret"});
  const MediaFacts out = encode(clip, kPlain);
  EXPECT_EQ(out.audio.size(), 1U);
  for (const auto& [key, value] : out.metadata) {
    EXPECT_NE(value, "secret") << key;
  }
}

TEST_F(EncodingTest, SoundAlone) {
  const MediaFacts out = encode(movieClip({.name = "a.m4a", .videoCodec = ""}),
                                {"-vcodec", "mpeg4", "-acodec", "aac"});
  EXPECT_FALSE(out.video);
  EXPECT_EQ(out.audio.size(), 1U);
}

TEST_F(EncodingTest, NamesThatMeanSomethingElsewhere) {
  const std::string clip = movieClip({.seconds = 0.4});
  for (const char* name :
       {"a:b.mp4", "50%d.mp4", "$x 'q' \"q\".mp4", "-dash.mp4", "\xc3\xa9.mp4"}) {
    EXPECT_TRUE(encode(clip, {"-vcodec", "mpeg4", "-an"}, name).video) << name;
    const TempDir other;
    std::filesystem::rename(folder / name, other / name);
    EXPECT_TRUE(encode(other / name, {"-vcodec", "mpeg4", "-an"}, name).video) << name;
    std::filesystem::remove(folder / name);
  }
}

class TwoPassTest : public EncodingTest, public testing::WithParamInterface<const char*> {};

TEST_P(TwoPassTest, LogsWhereTheCallerRemovesThem) {
  const std::string clip =
      movieClip({.name = "other.mkv", .size = "320x240", .videoCodec = "mpeg2video"});
  const std::string out = folder / "out.mp4";
  const RunResult first = runFfmpeg({"-i", clip, "-y", "-vcodec", GetParam(), "-b", "500k", "-pass",
                                     "1", "-passlogfile", out, "-an", "-f", "mp4", "/dev/null"});
  ASSERT_EQ(first.exitCode, 0) << first.err;
  EXPECT_TRUE(std::filesystem::exists(out + "-0.log"));
  const RunResult second =
      runFfmpeg({"-i", clip, "-y", "-vcodec", GetParam(), "-b", "500k", "-pass", "2",
                 "-passlogfile", out, "-acodec", "libfaac", "-ab", "64000", out});
  ASSERT_EQ(second.exitCode, 0) << second.err;
  for (int i = 0; i < 10; ++i) {
    std::filesystem::remove(out + "-" + std::to_string(i) + ".log");
  }
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("out.mp4"));
  EXPECT_EQ(decodingErrors(out), "");
  const MediaFacts facts = factsOf(out);
  ASSERT_TRUE(facts.video && facts.audio.size() == 1);
  EXPECT_NEAR(static_cast<double>(facts.video->bitsPerSecond), 500e3, 100e3);
}

INSTANTIATE_TEST_SUITE_P(Codecs, TwoPassTest, testing::Values("mpeg4", "libx264"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(EncodingTest, TwoPassesOfACopyNeedNoLog) {
  const std::string out = folder / "out.mp4";
  const std::string clip = movieClip(ClipRecipe{});
  EXPECT_EQ(runFfmpeg({"-i", clip, "-y", "-vcodec", "copy", "-pass", "1", "-passlogfile", out,
                       "-an", "-f", "mp4", "/dev/null"})
                .exitCode,
            0);
  encode(clip, {"-vcodec", "copy", "-pass", "2", "-passlogfile", out, "-acodec", "copy"});
}

}  // namespace
