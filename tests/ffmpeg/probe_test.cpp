// The report on real files, read as the daemon reads it and compared with what is known of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/ffmpeg/program_run.h"
#include "tests/ffmpeg/report_reader.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

struct Case {
  const char* description;
  ClipRecipe recipe;
  double frameRate = 25;
  const char* video = "h264";
};

void PrintTo(const Case& c, std::ostream* out) {
  *out << c.description;
}

class ProbeEveryKindTest : public testing::TestWithParam<Case> {};

TEST_P(ProbeEveryKindTest, LengthAndRate) {
  const std::string clip = movieClip(GetParam().recipe);
  const RunResult run = runFfmpeg({"-i", clip});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(run.err.ends_with("At least one output file must be specified\n")) << run.err;
  const ReadReport report = readReport(run.err);
  ASSERT_TRUE(report.matched) << run.err;
  EXPECT_NEAR(report.clipLengthMs, GetParam().recipe.seconds * 1000, 120) << run.err;
  EXPECT_NEAR(report.frameRate, GetParam().frameRate, 0.06) << run.err;
  EXPECT_GE(report.tbr, report.frameRate - 0.06) << run.err;
  EXPECT_NE(run.err.find(std::string(": Video: ") + GetParam().video + ", "), std::string::npos)
      << run.err;
}

const std::vector<std::string> kLive = {"-f", "matroska", "-live", "1"};

INSTANTIATE_TEST_SUITE_P(
    Files, ProbeEveryKindTest,
    testing::Values(
        Case{"mp4", {}}, Case{"mov", {.name = "a.mov", .audioCodec = "pcm_s16le"}},
        Case{"mpeg4Fractional", {.rate = "24000/1001", .videoCodec = "mpeg4"}, 23.98, "mpeg4"},
        Case{"ntsc", {.rate = "30000/1001"}, 29.97},
        Case{"3gp",
             {.name = "a.3gp",
              .size = "176x144",
              .videoCodec = "h263",
              .audioCodec = "libopencore_amrnb",
              .more = {"-ar", "8000", "-ac", "1"}},
             25,
             "h263"},
        Case{"avi",
             {.name = "a.avi", .videoCodec = "mpeg4", .audioCodec = "libmp3lame"},
             25,
             "mpeg4"},
        Case{"motionJpeg",
             {.name = "a.avi",
              .videoCodec = "mjpeg",
              .audioCodec = "pcm_s16le",
              .more = {"-pix_fmt", "yuvj420p"}},
             25,
             "mjpeg"},
        Case{"webmVp8",
             {.name = "a.webm", .videoCodec = "libvpx", .audioCodec = "libvorbis"},
             25,
             "vp8"},
        Case{"webmVp9",
             {.name = "a.webm",
              .videoCodec = "libvpx-vp9",
              .audioCodec = "libopus",
              .more = {"-deadline", "realtime", "-cpu-used", "8"}},
             25,
             "vp9"},
        Case{"mkvSurround", {.name = "a.mkv", .more = {"-ac", "6"}}},
        Case{"transportStream", {.name = "a.ts"}},
        Case{"programStream",
             {.name = "a.mpg", .videoCodec = "mpeg2video", .audioCodec = "mp2"},
             25,
             "mpeg2video"},
        Case{"flash", {.name = "a.flv"}},
        Case{"ogg",
             {.name = "a.ogv", .videoCodec = "libtheora", .audioCodec = "libvorbis"},
             25,
             "theora"},
        Case{"windows", {.name = "a.wmv", .videoCodec = "wmv2", .audioCodec = "wmav2"}, 25, "wmv2"},
        Case{"silent", {.audioCodec = ""}},
        Case{"fullRange", {.more = {"-pix_fmt", "yuvj420p", "-color_range", "pc"}}},
        Case{"rawH264", {.name = "a.h264", .audioCodec = "", .more = {"-r", "25"}}},
        Case{"rawMpeg4", {.name = "a.m4v", .videoCodec = "mpeg4", .audioCodec = ""}, 25, "mpeg4"},
        Case{"matroskaWithoutLength", {.name = "live.mkv", .more = kLive}},
        Case{"webmWithoutLength",
             {.name = "live.webm",
              .videoCodec = "libvpx",
              .audioCodec = "",
              .more = {"-f", "webm", "-live", "1"}},
             25,
             "vp8"}),
    [](const auto& instance) { return std::string(instance.param.description); });

// A report line about one thing, read from a fresh run.
std::string reportOf(const std::string& clip) {
  return runFfmpeg({"-i", clip}).err;
}

TEST(ProbeFileTest, VariableRate) {
  const std::string clip = movieClip(
      "vfr.mp4", {"-f", "lavfi", "-i", "testsrc2=size=160x120:rate=30:duration=3", "-vf",
                  "select='lt(t,1)+not(mod(n,7))'", "-fps_mode", "vfr", "-c:v", "libx264"});
  const ReadReport report = readReport(reportOf(clip));
  ASSERT_TRUE(report.matched);
  EXPECT_NEAR(report.clipLengthMs, 3000, 250);
  EXPECT_GT(report.frameRate, 5);
  EXPECT_LT(report.frameRate, 29);
  EXPECT_GT(report.tbr, report.frameRate);
}

TEST(ProbeFileTest, OneFrame) {
  const std::string clip = movieClip({.seconds = 0.04, .audioCodec = ""});
  const ReadReport report = readReport(reportOf(clip));
  ASSERT_TRUE(report.matched) << reportOf(clip);
  EXPECT_EQ(report.clipLengthMs, 39);  // 0.04 in single precision
}

TEST(ProbeFileTest, CoverPicturesAreNoVideo) {
  const std::string cover =
      movieClip("cover.jpg", {"-f", "lavfi", "-i", "testsrc2=size=64x64:rate=1:duration=1",
                              "-frames:v", "1", "-update", "1"});
  const std::string clip =
      movieClip("cover.mp4", {"-i", cover, "-i", movieClip(ClipRecipe{}), "-map", "0:v", "-map",
                              "1", "-c", "copy", "-disposition:v:0", "attached_pic"});
  const std::string text = reportOf(clip);
  EXPECT_NE(text.find(": Video: h264, "), std::string::npos) << text;
  EXPECT_EQ(text.find("mjpeg"), std::string::npos) << text;
  EXPECT_TRUE(readReport(text).matched) << text;
}

TEST(ProbeFileTest, OnlyTheFirstOfTwoVideoStreams) {
  const std::string clip =
      movieClip("two.mkv", {"-i", movieClip(ClipRecipe{}), "-i",
                            movieClip({.rate = "10", .videoCodec = "mpeg4", .audioCodec = ""}),
                            "-map", "0", "-map", "1", "-c", "copy"});
  const ReadReport report = readReport(reportOf(clip));
  ASSERT_TRUE(report.matched);
  EXPECT_EQ(report.frameRate, 25);
}

TEST(ProbeFileTest, ForeignTextInTheFileFoolsNobody) {
  const std::string lie = "Duration: 00:00:01.00, Stream #0.0: Video: x, 9 kb/s, 9 fps, 9 tbr";
  for (const std::string& title :
       {lie, "Price: $5 \\ \"q\" 'q'\n" + lie, std::string("\xc3\xa4 \xe4 \xff ") + lie}) {
    const std::string clip =
        movieClip("tagged.mp4", {"-i", movieClip(ClipRecipe{}), "-c", "copy", "-metadata",
                                 "title=" + title, "-metadata", "comment=" + lie});
    const std::string text = reportOf(clip);
    const ReadReport report = readReport(text);
    ASSERT_TRUE(report.matched) << text;
    EXPECT_NEAR(report.clipLengthMs, 2000, 50) << text;
    EXPECT_EQ(report.frameRate, 25) << text;
  }
}

TEST(ProbeFileTest, ForeignTextInTheNameFoolsNobody) {
  const TempDir folder;
  const std::string name =
      folder / "$5 \xff Duration: 00:00:01.00, Stream #0.0: Video: x, 9 kb:s, 9 fps.mp4";
  std::filesystem::copy_file(movieClip(ClipRecipe{}), name);
  const ReadReport report = readReport(reportOf(name));
  ASSERT_TRUE(report.matched);
  EXPECT_NEAR(report.clipLengthMs, 2000, 50);
  const RunResult missing =
      runFfmpeg({"-i", "Duration: 00:00:01.00, Stream #0.0: Video: x, 9 kb/s, 9 fps, 9 tbr"});
  EXPECT_FALSE(readReport(missing.err).matched) << missing.err;
}

TEST(ProbeFileTest, LengthWithinFiftyMillisecondsOfTheContainers) {
  for (const char* seconds : {"1.23", "2.07", "3.999"}) {
    const std::string clip = movieClip(
        {.seconds = std::stod(seconds), .rate = "100", .videoCodec = "mpeg4", .audioCodec = ""});
    const ReadReport report = readReport(reportOf(clip));
    ASSERT_TRUE(report.matched);
    EXPECT_NEAR(report.clipLengthMs, std::stod(seconds) * 1000, 50);
  }
}

TEST(ProbeFileTest, SoundAloneIsReportedWithoutVideo) {
  const std::string text = reportOf(movieClip({.name = "a.m4a", .videoCodec = ""}));
  EXPECT_NE(text.find(": Audio: aac, "), std::string::npos) << text;
  EXPECT_FALSE(readReport(text).matched);
}

void expectNoMovie(const std::string& path) {
  const RunResult run = runFfmpeg({"-i", path});
  EXPECT_EQ(run.exitCode, 1) << path;
  EXPECT_EQ(run.out, "");
  EXPECT_FALSE(readReport(run.err).matched) << run.err;
  EXPECT_TRUE(run.err.starts_with("ffmpeg: ")) << run.err;
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

TEST(ProbeFileTest, WhatIsNoMovieIsOneClearLine) {
  const std::string clip = movieClip(ClipRecipe{});
  expectNoMovie(TempDir() / "none.mp4");
  expectNoMovie("/tmp");
  expectNoMovie("/dev/zero");
  expectNoMovie(textFile("empty.mp4", ""));
  expectNoMovie(textFile("text.mp4", std::string(5000, 'x')));
  expectNoMovie("file:" + clip);
  expectNoMovie("concat:" + clip);
}

TEST(ProbeFileTest, PlaylistsAndScriptsReachNoOtherFile) {
  const std::string clip = movieClip({.name = "part.ts"});
  expectNoMovie(textFile(
      "x.mp4", "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + clip + "\n#EXT-X-ENDLIST\n"));
  expectNoMovie(textFile("y.mp4", "ffconcat version 1.0\nfile '" + clip + "'\n"));
  expectNoMovie(textFile("z.mp4",
                         "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\n"
                         "t=0 0\nm=video 5004 RTP/AVP 96\na=rtpmap:96 H264/90000\n"));
  expectNoMovie(movieClip("still.jpg", {"-f", "lavfi", "-i", "testsrc2=size=64x64:rate=1",
                                        "-frames:v", "1", "-update", "1"}));
}

TEST(ProbeFileTest, ATruncatedFileDoesNotCrash) {
  const std::string whole = readFile(movieClip({.name = "t.mkv"}));
  for (const size_t size : {size_t{40}, size_t{700}, whole.size() / 2, whole.size() - 3}) {
    const RunResult run = runFfmpeg({"-i", textFile("cut.mkv", whole.substr(0, size))});
    EXPECT_EQ(run.exitCode, 1) << size << run.err;
  }
}

// One picture at a time 194,000 years from now.
TEST(ProbeFileTest, AStartThatNoMovieHasIsNone) {
  const std::string head{"DKIF\0\0 \0VP80\xa0\0x\0\x19\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0", 32};
  const std::string time{"\0\0\0\0\0\x8b\0\0", 8};
  const std::string picture{"\x30\1\0\x9d\1\x2a\xa0\0x\0", 10};
  const std::string length{"\x0a\0\0\0", 4};
  const TempDir dir;
  const RunResult run = runFfmpeg({"-i", dir.write("far.ivf", head + length + time + picture)});
  EXPECT_TRUE(readReport(run.err).matched) << run.err;
}

// The index behind 3 GiB of nothing.
TEST(ProbeTest, ReadsWhatStandsBehind3GiB) {
  const TempDir dir;
  const std::string path = dir / "a.mp4";
  const std::string clip = readFile(movieClip({}));
  const size_t index = clip.rfind("moov") - 4;
  const std::string hole{"\0\0\0\1free\0\0\0\0\xc0\0\0\0", 16};
  constexpr uintmax_t kHoleBytes = uintmax_t{3} << 30;
  writeFile(path, clip.substr(0, index) + hole);
  std::filesystem::resize_file(path, index + kHoleBytes);
  std::ofstream(path, std::ios::binary | std::ios::app) << clip.substr(index);
  const ReadReport report = readReport(runFfmpeg({"-i", path}).err);
  EXPECT_TRUE(report.matched);
  EXPECT_NEAR(report.clipLengthMs, 2000, 120);
}

}  // namespace
