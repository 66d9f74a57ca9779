#include "platform/ffmpeg/request/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Parsed {
  bool ok = false;
  Options options;
  std::string error;
};

Parsed parse(const std::vector<const char*>& words) {
  std::vector<const char*> argv = {"ffmpeg"};
  argv.insert(argv.end(), words.begin(), words.end());
  Parsed parsed;
  parsed.ok =
      parseOptions(static_cast<int>(argv.size()), argv.data(), &parsed.options, &parsed.error);
  return parsed;
}

TEST(OptionsTest, InputAloneIsAProbe) {
  const Parsed parsed = parse({"-i", "/a b/clip.mp4"});
  ASSERT_TRUE(parsed.ok) << parsed.error;
  EXPECT_TRUE(parsed.options.isProbe());
  EXPECT_EQ(parsed.options.input, "/a b/clip.mp4");
}

TEST(OptionsTest, EveryOptionOfASinglePass) {
  const Parsed parsed =
      parse({"-i",      "in.mov", "-y",    "-s",       "qcif",  "-sws_flags", "fast_bilinear",
             "-vcodec", "h263",   "-b",    "691k",     "-r",    "29.970",     "-acodec",
             "libfaac", "-ab",    "76799", "-ar",      "22050", "-ac",        "1",
             "-fs",     "949999", "-ss",   "1.500000", "-t",    "5.000000",   "out.3gp"});
  ASSERT_TRUE(parsed.ok) << parsed.error;
  const Options& o = parsed.options;
  EXPECT_EQ(o.input, "in.mov");
  EXPECT_EQ(o.output, "out.3gp");
  EXPECT_TRUE(o.overwrite);
  EXPECT_EQ(o.size, (PictureSize{176, 144}));
  EXPECT_EQ(o.videoCodec, "h263");
  EXPECT_EQ(o.videoBitRate, "691k");
  EXPECT_EQ(o.videoBitsPerSecond(), 691000);
  EXPECT_EQ(o.frameRate, "29.970");
  EXPECT_EQ(o.audioCodec, "libfaac");
  EXPECT_EQ(o.audioBitsPerSecond(), 76799);
  EXPECT_EQ(o.sampleRateHz, 22050);
  EXPECT_EQ(o.channels, 1);
  EXPECT_EQ(o.maxSizeBytes, 949999);
  EXPECT_EQ(o.startOffsetMs(), 1500);
  EXPECT_EQ(o.clipLengthMs(), 5000);
  EXPECT_EQ(o.format, "3gp");
  EXPECT_FALSE(o.noAudio);
  EXPECT_EQ(o.pass, 0);
}

TEST(OptionsTest, FirstOfTwoPasses) {
  const Parsed parsed = parse({"-i", "in.mov", "-y", "-vcodec", "mpeg4", "-b", "691k", "-pass", "1",
                               "-passlogfile", "/d/out.mp4", "-an", "-f", "mp4", "/dev/null"});
  ASSERT_TRUE(parsed.ok) << parsed.error;
  EXPECT_EQ(parsed.options.pass, 1);
  EXPECT_TRUE(parsed.options.noAudio);
  EXPECT_TRUE(parsed.options.discardsOutput());
  EXPECT_EQ(parsed.options.format, "mp4");
  EXPECT_EQ(parsed.options.target(), "/d/out.mp4");
}

TEST(OptionsTest, AnAutomaticSizeIsNone) {
  const Parsed parsed = parse({"-i", "in.mov", "-y", "-s", "auto", "-vcodec", "mpeg4", "o.mp4"});
  ASSERT_TRUE(parsed.ok) << parsed.error;
  EXPECT_EQ(parsed.options.size, PictureSize());
}

TEST(OptionsTest, NamesWithOddBeginnings) {
  EXPECT_EQ(parse({"-i", "-in.mp4", "-y", "-out.mp4"}).options.output, "-out.mp4");
  EXPECT_EQ(parse({"-i", "http://x/y.mp4", "a:b%d.mp4"}).options.input, "http://x/y.mp4");
  EXPECT_EQ(parse({"-i", "a", "a:b%d.mp4"}).options.output, "a:b%d.mp4");
}

struct Refusal {
  const char* title;
  std::vector<const char*> words;
  const char* error;
};

class OptionsRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(OptionsRefusalTest, OneClearLine) {
  const Parsed parsed = parse(GetParam().words);
  EXPECT_FALSE(parsed.ok);
  EXPECT_EQ(parsed.error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    All, OptionsRefusalTest,
    testing::Values(
        Refusal{"Nothing", {}, "no input: -i FILE is missing"},
        Refusal{"InputWithoutFile", {"-i"}, "option -i lacks its value"},
        Refusal{"UnknownOption", {"-i", "a", "-foo", "1", "o.mp4"}, "unknown option '-foo'"},
        Refusal{"Filter", {"-i", "a", "-vf", "x", "o.mp4"}, "unknown option '-vf'"},
        Refusal{"Version", {"-version"}, "unknown option '-version'"},
        Refusal{"TwoInputs", {"-i", "a", "-i", "b", "o.mp4"}, "option -i cannot take 'b'"},
        Refusal{"TwoOutputs",
                {"-i", "a", "x.mp4", "o.mp4"},
                "there must be one output, and 'o.mp4' is not it"},
        Refusal{"SizeByName", {"-i", "a", "-s", "big", "o.mp4"}, "option -s cannot take 'big'"},
        Refusal{"NoBitRate", {"-i", "a", "-b", "0k", "o.mp4"}, "option -b cannot take '0k'"},
        Refusal{
            "NegativeSoundRate", {"-i", "a", "-ab", "-5", "o.mp4"}, "option -ab cannot take '-5'"},
        Refusal{"NegativeFrameRate",
                {"-i", "a", "-r", "-1.000", "o.mp4"},
                "option -r cannot take '-1.000'"},
        Refusal{"SizeOfNothing", {"-i", "a", "-s", "0x0", "o.mp4"}, "option -s cannot take '0x0'"},
        Refusal{
            "NegativeBitRate", {"-i", "a", "-b", "-5k", "o.mp4"}, "option -b cannot take '-5k'"},
        Refusal{"BitRateUnit", {"-i", "a", "-b", "6x", "o.mp4"}, "option -b cannot take '6x'"},
        Refusal{"FrameRateOfNothing", {"-i", "a", "-r", "0", "o.mp4"}, "option -r cannot take '0'"},
        Refusal{"ThirdPass", {"-i", "a", "-pass", "3", "o.mp4"}, "option -pass cannot take '3'"},
        Refusal{"FractionalSampleRate",
                {"-i", "a", "-ar", "8000.5", "o.mp4"},
                "option -ar cannot take '8000.5'"},
        Refusal{"BudgetOfNothing", {"-i", "a", "-fs", "0", "o.mp4"}, "option -fs cannot take '0'"},
        Refusal{"NegativeStart", {"-i", "a", "-ss", "-1", "o.mp4"}, "option -ss cannot take '-1'"},
        Refusal{"LengthThatIsNoNumber",
                {"-i", "a", "-t", "nan", "o.mp4"},
                "option -t cannot take 'nan'"},
        Refusal{"CodecLikeAnOption",
                {"-i", "a", "-vcodec", "-x", "o.mp4"},
                "option -vcodec cannot take '-x'"},
        Refusal{"ScalerFlags",
                {"-i", "a", "-sws_flags", "a:b", "o.mp4"},
                "option -sws_flags cannot take 'a:b'"},
        Refusal{"UnknownFormat", {"-i", "a", "-f", "hls", "o.mp4"}, "option -f cannot take 'hls'"},
        Refusal{
            "Playlist", {"-i", "a", "o.m3u8"}, "'o.m3u8' names no container that can be written"},
        Refusal{"NoExtension", {"-i", "a", "out"}, "'out' names no container that can be written"}),
    [](const auto& test) { return std::string(test.param.title); });

}  // namespace
