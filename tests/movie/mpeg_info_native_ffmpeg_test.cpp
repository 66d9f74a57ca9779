#include "src/movie/mpeg_info_native_ffmpeg.h"

#include <sys/resource.h>

#include <filesystem>

#include "tests/movie/comma_locale.h"
#include "tests/movie/failing_calls.h"
#include "tests/movie/movie_test.h"
#include "tests/support/fake_ffmpeg.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kNotMedia[] = "Input file is not a media file";
constexpr char kNotParsed[] = "can't parse movie information\n";

class Info final : public MpegInfoNativeFFMpeg {
 public:
  using MpegInfo::inFile;
  using MpegInfoNativeFFMpeg::MpegInfoNativeFFMpeg;
  using TaskBase::ctx;
};

std::string report(const std::string& duration, const std::string& rates = "25 fps, 25") {
  return "Input #0, mov,mp4,m4a,3gp,3g2,mj2, from 'clip.mp4':\n"
         "  Metadata:\n    title           : $1 Video: 5 kb/s, 1 fps, 1 tbr\n"
         "  Duration: " +
         duration +
         ", start: 0.000000, bitrate: 1456 kb/s\n"
         "    Stream #0.1(und): Audio: aac, 44100 Hz, stereo, s16, 64 kb/s\n"
         "    Stream #0.0(und): Video: mpeg4, yuv420p, 640x480 [PAR 1:1 DAR 4:3], 512 kb/s, " +
         rates +
         " tbr, 12800 tbn, 25 tbc\n"
         "At least one output file must be specified\n";
}

class ProbeTest : public MovieTest {
 protected:
  // Probes a file of that size with an ffmpeg that prints the report.
  LaunchResult probe(const std::string& text, int64_t sizeBytes = 1000000) {
    const FakeFfmpeg ffmpeg(reportsOnProbe(text));
    const LaunchResult result = run(sizeBytes);
    calls = ffmpeg.calls();
    return result;
  }
  LaunchResult run(int64_t sizeBytes) {
    info.inFile = dir.write("in put.mov", "");
    std::filesystem::resize_file(info.inFile, static_cast<uintmax_t>(sizeBytes));
    return info.run();
  }
  int32_t clipLengthOf(const std::string& duration) {
    EXPECT_EQ(probe(report(duration)), LaunchDone) << duration;
    return info.clipLength;
  }
  // The probe must have failed, for that reason and without a reply of its own.
  void expectFailure(LaunchResult result, const char* errorText) {
    EXPECT_EQ(result, LaunchFailed);
    EXPECT_THAT(request.replies(), IsEmpty());
    info.ctx->replyFail();
    EXPECT_EQ(onlyReply(request), failure(errorText));
  }

  fake_vela::Request request{"{}"};
  Info info{new VSCtx(fake_vela::handle(), request.message())};
  std::vector<FakeFfmpeg::Arguments> calls;
};

TEST_F(ProbeTest, FillsInTheFiguresAndReplies) {
  EXPECT_EQ(probe(report("00:01:23.45", "29.97 fps, 59.94"), 10000000), LaunchDone);
  EXPECT_EQ(info.fileSize, 10000000);
  EXPECT_EQ(info.clipLength, 83450);
  EXPECT_EQ(info.bitrate, 958657);
  EXPECT_EQ(info.frameRate, 29.97F);
  EXPECT_EQ(info.tbr, 59.94F);
  EXPECT_EQ(onlyReply(request),
            R"({"returnValue":true,"fileSize":10000000,"bitrate":958657,"clipLength":83.45})");
  EXPECT_THAT(calls, ElementsAre(ElementsAre("-i", info.inFile)));
}

TEST_F(ProbeTest, QuietProbeOnlyFillsIn) {
  info.quiet = true;
  EXPECT_EQ(probe(report("00:00:10.00")), LaunchDone);
  EXPECT_EQ(info.bitrate, 800000);
  EXPECT_THAT(request.replies(), IsEmpty());
}

TEST_F(ProbeTest, LinkIsWhatItLeadsTo) {
  info.inFile = dir / "link";
  std::filesystem::create_symlink(dir.write("movie", std::string(1000000, 'x')), info.inFile);
  const FakeFfmpeg ffmpeg(reportsOnProbe(report("00:00:10.00")));
  EXPECT_EQ(info.run(), LaunchDone);
  EXPECT_EQ(info.fileSize, 1000000);
}

TEST_F(ProbeTest, RunsAtTheDaemonsPriority) {
  const FakeFfmpeg ffmpeg("nice > \"$here/nice\"\n" + reportsOnProbe(report("00:00:10.00")));
  EXPECT_EQ(run(1000000), LaunchDone);
  EXPECT_EQ(readFile(ffmpeg.here() / "nice"), std::to_string(getpriority(PRIO_PROCESS, 0)) + "\n");
}

TEST_F(ProbeTest, MissingFileIsNoMedia) {
  info.inFile = dir / "missing";
  expectFailure(info.run(), kNotMedia);
}

TEST_F(ProbeTest, EmptyFileIsNoMediaAndNotProbed) {
  const LaunchResult result = probe(report("00:00:10.00"), 0);
  expectFailure(result, kNotMedia);
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(ProbeTest, FileOf2GiBIsNoMediaAndNotProbed) {
  const LaunchResult result = probe(report("00:00:10.00"), int64_t{INT32_MAX} + 1);
  expectFailure(result, kNotMedia);
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(ProbeTest, LargestFileIsProbed) {
  EXPECT_EQ(probe(report("00:00:10.00"), INT32_MAX), LaunchDone);
  EXPECT_EQ(info.fileSize, INT32_MAX);
  EXPECT_EQ(info.bitrate, 0);  // -8 bits in 10 s
}

TEST_F(ProbeTest, BitrateWrapsFrom256MiBOn) {
  EXPECT_EQ(probe(report("00:00:10.00"), 268435455), LaunchDone);
  EXPECT_EQ(info.bitrate, 214748364);
  EXPECT_EQ(probe(report("00:00:10.00"), 268435456), LaunchDone);
  EXPECT_EQ(info.bitrate, -214748364);
  EXPECT_EQ(probe(report("00:00:10.00"), 300000000), LaunchDone);
  EXPECT_EQ(info.bitrate, -189496729);
}

TEST_F(ProbeTest, LengthOfZeroMakesTheLowestBitrate) {
  EXPECT_EQ(probe(report("00:00:00.00")), LaunchDone);
  EXPECT_EQ(info.clipLength, 0);
  EXPECT_EQ(info.bitrate, INT32_MIN);
  EXPECT_THAT(onlyReply(request), testing::HasSubstr(R"("bitrate":-2147483648,)"));
}

TEST_F(ProbeTest, LengthIsCutFromSecondsInSinglePrecision) {
  EXPECT_EQ(clipLengthOf("00:00:00.29"), 289);
  EXPECT_EQ(clipLengthOf("00:00:00.57"), 569);
  EXPECT_EQ(clipLengthOf("00:00:30.03"), 30030);
  EXPECT_EQ(clipLengthOf("00:00:00.75"), 750);
  EXPECT_EQ(clipLengthOf("01:02:03.50"), 3723500);
  EXPECT_EQ(clipLengthOf("10:00:00.00"), 36000000);
  EXPECT_EQ(clipLengthOf("00:00:7"), 7000);
}

TEST_F(ProbeTest, LengthThatDoesNotFitIsTheLowestNumber) {
  EXPECT_EQ(clipLengthOf("596:31:23.50"), 2147483500);
  EXPECT_EQ(clipLengthOf("596:31:23.75"), INT32_MIN);
  EXPECT_EQ(clipLengthOf("600000:00:00.00"), INT32_MIN);
}

TEST_F(ProbeTest, SecondsInTheWholePartWrap) {
  // 1193046 h and 28 min are 4294967280 s, or -16.
  EXPECT_EQ(clipLengthOf("1193046:28:20.50"), 4500);
}

TEST_F(ProbeTest, PartlyReadFiguresAreTaken) {
  EXPECT_EQ(clipLengthOf("00:01:."), 60000);
  EXPECT_EQ(probe(report("00:00:10.00", "x fps, 25")), LaunchDone);
  EXPECT_EQ(info.frameRate, 25.0F) << "keeps what an earlier run read";
}

TEST_F(ProbeTest, BackslashMayStandInTheSeconds) {
  EXPECT_EQ(clipLengthOf("00:00:1\\5.00"), 1000);
}

TEST_F(ProbeTest, FiguresThatAreNotThereStayZero) {
  EXPECT_EQ(probe(report("00:00:10.00", "12.5 fps, x")), LaunchDone);
  EXPECT_EQ(info.frameRate, 12.5F);
  EXPECT_EQ(info.tbr, 0.0F);
}

TEST_F(ProbeTest, RatesWithoutAnyNumberAreTaken) {
  EXPECT_EQ(probe(report("00:00:10.00", " fps, ")), LaunchDone);
  EXPECT_EQ(info.frameRate, 0.0F);
}

TEST_F(ProbeTest, LastVideoStreamGivesTheRates) {
  EXPECT_EQ(probe(report("00:00:10.00", "25 fps, 25") +
                  "    Stream #0.2: Video: png, rgb24, 9x9, 9 kb/s, 12 fps, 90k tbr, 90k tbn"),
            LaunchDone);
  EXPECT_EQ(info.frameRate, 12.0F);
  EXPECT_EQ(info.tbr, 90.0F);
}

TEST_F(ProbeTest, VideoLineWithoutABitrateIsNotParsed) {
  const LaunchResult result = probe(
      "  Duration: 00:00:10.00, start: 0.000000, bitrate: 1456 kb/s\n"
      "    Stream #0.0: Video: vp8, yuv420p, 640x480, 25 fps, 25 tbr, 1k tbn\n");
  expectFailure(result, kNotParsed);
  EXPECT_EQ(info.fileSize, 1000000);
}

TEST_F(ProbeTest, ReportsThatDoNotMatch) {
  const std::string video = "    Stream #0.0: Video: x, 5 kb/s, 25 fps, 25 tbr\n";
  const std::string reports[] = {
      "",
      "in.mov: Invalid data found when processing input",
      video,
      "  Duration: N/A, start: 0.000000, bitrate: N/A\n" + video,
      "  Duration: 00:10.00, start\n" + video,
      "  Duration: 00:00:10.00\n" + video,
      "  duration: 00:00:10.00, start\n" + video,
      video + "  Duration: 00:00:10.00, start\n",
      "  Duration: 00:00:10.00, start\n    Stream #1.0: Video: x, 5 kb/s, 25 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0:0: Video: x, 5 kb/s, 25 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0: Audio: x, 5 kb/s, 25 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0: Video: $, 5 kb/s, 25 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0: Video: \\, 5 kb/s, 25 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0\\: Video: x, 5 kb/s, 25 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0: Video: x, 5 kb/s, 2\\5 fps, 25 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0: Video: x, 5 kb/s, 25 fps, 2\\5 tbr\n",
      "  Duration: 00:00:10.00, start\n    Stream #0.0: Video: x, 5 kb/s, 25 fps, 25 TBR\n",
  };
  for (const std::string& text : reports) {
    EXPECT_EQ(probe(text), LaunchFailed) << text;
    EXPECT_THAT(calls, SizeIs(1));
  }
  expectFailure(LaunchFailed, kNotParsed);
}

TEST_F(ProbeTest, BytesThatAreNoTextDoNotMatter) {
  EXPECT_EQ(probe("\xff\xfe" + report("00:00:10.00") + "\x80"), LaunchDone);
  EXPECT_EQ(info.clipLength, 10000);
}

TEST_F(ProbeTest, CommaOfTheUsersLocaleIsNotUsed) {
  const CommaLocale comma;
  if (!comma.isInUse()) GTEST_SKIP() << "no locale that writes a comma (package locales)";
  EXPECT_EQ(probe("\xff" + report("00:00:10.50", "29.97 fps, 29.97")), LaunchDone);
  EXPECT_EQ(info.clipLength, 10500);
  EXPECT_EQ(info.tbr, 29.97F);
}

TEST_F(ProbeTest, ProbeWithoutAnFfmpegIsNotParsed) {
  const ScopedVariable path("PATH", dir.path());
  expectFailure(run(1000000), kNotParsed);
}

TEST_F(ProbeTest, ProbeThatCannotStartIsNotParsed) {
  gFailingCalls.fork = 1;
  expectFailure(run(1000000), kNotParsed);
}

}  // namespace
