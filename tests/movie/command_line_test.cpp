#include <filesystem>
#include <sstream>

#include "src/framework/program.h"
#include "src/movie/mpeg_transcode_native_ffmpeg.h"
#include "tests/movie/comma_locale.h"
#include "tests/movie/failing_calls.h"
#include "tests/movie/movie_test.h"
#include "tests/support/fake_ffmpeg.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Probe final : public MpegInfo {
 public:
  Probe(float frames, float ticks) : MpegInfo(nullptr) {
    frameRate = frames;
    tbr = ticks;
  }
  LaunchResult run() override { return LaunchDone; }
};

class Transcoder final : public MpegTranscodeNativeFFMpeg {
 public:
  explicit Transcoder(VSCtx* context) : MpegTranscodeNativeFFMpeg(context) {
    inFile = "in.mov";
    outFile = "out.mp4";
    outputExtension = ".mp4";
    videoEncoder = "mpeg4";
    audioEncoder = "aac";
    bitrateVideo = 691200;
    bitrateAudio = 76799;
  }
  using MpegTranscodeNative::audioEncoder;
  using MpegTranscodeNative::audioSamplingRate;
  using MpegTranscodeNative::bitrateAudio;
  using MpegTranscodeNative::bitrateVideo;
  using MpegTranscodeNative::clipLengthMs;
  using MpegTranscodeNative::maxOutputSize;
  using MpegTranscodeNative::outputExtension;
  using MpegTranscodeNative::picSize;
  using MpegTranscodeNative::startOffsetMs;
  using MpegTranscodeNative::videoEncoder;
  using MpegTranscodeNative::videoFrameRate;
  using TranscodeBase::inFile;
  using TranscodeBase::outFile;
};

class CommandLineTest : public MovieTest {
 protected:
  // What ffmpeg is given for the pass, with blanks between; "exit N" when it is not started.
  std::string lineOf(int pass) {
    const FakeFfmpeg ffmpeg("");
    ProgramWithPass program(&transcoder, pass);
    std::string out;
    std::string err;
    int status;
    EXPECT_NE(execProgram(out, err, &status, 0, &program), -1);
    EXPECT_EQ(err, "");
    const auto calls = ffmpeg.calls();
    if (calls.empty()) return "exit " + std::to_string((status >> 8) & 0xff);
    std::string line;
    for (const std::string& item : calls[0]) {
      line += item + " ";
    }
    line.pop_back();
    return line;
  }

  Transcoder transcoder{nullptr};
};

TEST_F(CommandLineTest, OnePass) {
  EXPECT_EQ(lineOf(1), "-i in.mov -y -vcodec mpeg4 -b 691k -acodec libfaac -ab 76799 out.mp4");
}

TEST_F(CommandLineTest, FirstOfTwoPassesOnlyMeasures) {
  transcoder.setPasses(2);
  transcoder.maxOutputSize = 949999;
  EXPECT_EQ(lineOf(2),
            "-i in.mov -y -vcodec mpeg4 -b 691k -pass 1 -passlogfile out.mp4 -an "
            "-f mp4 /dev/null");
}

TEST_F(CommandLineTest, SecondOfTwoPassesWrites) {
  transcoder.setPasses(2);
  transcoder.maxOutputSize = 949999;
  EXPECT_EQ(lineOf(1),
            "-i in.mov -y -vcodec mpeg4 -b 691k -pass 2 -passlogfile out.mp4 "
            "-acodec libfaac -ab 76799 -fs 949999 out.mp4");
}

TEST_F(CommandLineTest, EverythingAtOnce) {
  transcoder.setPasses(2);
  transcoder.outFile = "o.3gp";
  transcoder.outputExtension = ".3gp";
  transcoder.picSize = "qcif";
  transcoder.videoFrameRate = 12.5;
  transcoder.audioSamplingRate = 22050;
  transcoder.maxOutputSize = 1;
  transcoder.startOffsetMs = 1500;
  transcoder.clipLengthMs = 5001;
  EXPECT_EQ(lineOf(2),
            "-i in.mov -y -s qcif -sws_flags fast_bilinear -vcodec mpeg4 -b 691k -r 12.500 "
            "-pass 1 -passlogfile o.3gp -an -ss 1.500000 -t 5.001000 -f 3gp /dev/null");
  EXPECT_EQ(lineOf(1),
            "-i in.mov -y -s qcif -sws_flags fast_bilinear -vcodec mpeg4 -b 691k -r 12.500 "
            "-pass 2 -passlogfile o.3gp -acodec libfaac -ab 76799 -ar 22050 -ac 1 -fs 1 "
            "-ss 1.500000 -t 5.001000 o.3gp");
}

TEST_F(CommandLineTest, RatesOfZeroAreLeftOut) {
  transcoder.bitrateVideo = transcoder.bitrateAudio = 0;
  EXPECT_EQ(lineOf(1), "-i in.mov -y -vcodec mpeg4 -acodec libfaac out.mp4");
}

TEST_F(CommandLineTest, VideoRateIsCutTowardZero) {
  transcoder.bitrateVideo = -1999;
  EXPECT_EQ(lineOf(1), "-i in.mov -y -vcodec mpeg4 -b -1k -acodec libfaac -ab 76799 out.mp4");
}

TEST_F(CommandLineTest, AmrNbHasASamplingRateOfItsOwn) {
  transcoder.audioEncoder = "amrnb";
  transcoder.audioSamplingRate = 44100;
  EXPECT_EQ(lineOf(1),
            "-i in.mov -y -vcodec mpeg4 -b 691k -acodec libopencore_amrnb -ab 76799 "
            "-ar 8000 -ac 1 out.mp4");
}

TEST_F(CommandLineTest, OtherCodecsGoUnchanged) {
  transcoder.videoEncoder = "copy";
  transcoder.audioEncoder = "mp3";
  EXPECT_EQ(lineOf(1), "-i in.mov -y -vcodec copy -b 691k -acodec mp3 -ab 76799 out.mp4");
}

TEST_F(CommandLineTest, Clips) {
  const std::string head = "-i in.mov -y -vcodec mpeg4 -b 691k -acodec libfaac -ab 76799 ";
  const std::tuple<int, int, std::string> cases[] = {
      {0, 5000, "-ss 0.000000 -t 5.000000 "},
      {-1, 5000, "-t 5.000000 "},
      {1, 0, "-ss 0.001000 "},
      {0, 0, ""},
      {-1, 0, ""},
      {0, -1, ""},
      {INT32_MAX, INT32_MAX, "-ss 2147483.647000 -t 2147483.647000 "}};
  for (const auto& [start, length, items] : cases) {
    transcoder.startOffsetMs = start;
    transcoder.clipLengthMs = length;
    EXPECT_EQ(lineOf(1), head + items + "out.mp4");
  }
}

TEST_F(CommandLineTest, CommaOfTheUsersLocaleIsNotUsed) {
  const CommaLocale comma;
  if (!comma.isInUse()) GTEST_SKIP() << "no locale that writes a comma (package locales)";
  transcoder.videoFrameRate = 12.5;
  transcoder.startOffsetMs = 1500;
  transcoder.clipLengthMs = 5001;
  EXPECT_EQ(lineOf(1),
            "-i in.mov -y -vcodec mpeg4 -b 691k -r 12.500 -acodec libfaac -ab 76799 "
            "-ss 1.500000 -t 5.001000 out.mp4");
}

TEST_F(CommandLineTest, NegativeBudgetIsLeftOut) {
  transcoder.maxOutputSize = -1;
  EXPECT_EQ(lineOf(1), "-i in.mov -y -vcodec mpeg4 -b 691k -acodec libfaac -ab 76799 out.mp4");
}

TEST_F(CommandLineTest, FrameRates) {
  const std::string head = "-i in.mov -y -vcodec mpeg4 -b 691k ";
  struct Case {
    float asked, frameRate, tbr;
    std::string items;
  };
  const Case cases[] = {
      {0, 25, 25, ""},
      {0, 29.97F, 59.94F, "-r 29.970 "},
      {0, 59.94F, 29.97F, ""},
      {0, 0, 25, ""},
      {10, 29.97F, 59.94F, "-r 10.000 "},
      {-1, 25, 25, "-r -1.000 "},
      {0.0001F, 25, 25, "-r 0.000 "},
      {23.9765F, 0, 0, "-r 23.976 "},
      {3.4e38F, 0, 0, "-r 339999995214436424907732413799364296704.000 "},
  };
  for (const Case& one : cases) {
    Probe probe(one.frameRate, one.tbr);
    transcoder.mpegInfo = &probe;
    transcoder.videoFrameRate = one.asked;
    EXPECT_EQ(lineOf(1), head + one.items + "-acodec libfaac -ab 76799 out.mp4");
  }
  transcoder.mpegInfo = nullptr;
  transcoder.videoFrameRate = 0;
  EXPECT_EQ(lineOf(1), head + "-acodec libfaac -ab 76799 out.mp4");
}

TEST_F(CommandLineTest, PathsAreItemsAsTheyAre) {
  const FakeFfmpeg ffmpeg("");
  transcoder.inFile = "/a b/-x $(y) \"q\".mov";
  transcoder.outFile = "/o'%s.mp4";
  transcoder.bitrateVideo = transcoder.bitrateAudio = 0;
  ProgramWithPass program(&transcoder, 1);
  std::string out;
  std::string err;
  int status;
  execProgram(out, err, &status, 0, &program);
  EXPECT_THAT(ffmpeg.calls(),
              ElementsAre(ElementsAre("-i", transcoder.inFile, "-y", "-vcodec", "mpeg4", "-acodec",
                                      "libfaac", transcoder.outFile)));
}

TEST_F(CommandLineTest, PassesThatThereAreNotAreRefused) {
  for (const int pass : {-1, 0, 2, 3}) {
    EXPECT_EQ(transcoder.exec(pass), -1);
    EXPECT_EQ(lineOf(pass), "exit 255");
  }
  transcoder.setPasses(2);
  for (const int pass : {0, 3}) {
    EXPECT_EQ(lineOf(pass), "exit 255");
  }
}

TEST_F(CommandLineTest, MissingFfmpegReturnsAfterPrintingTheLine) {
  const ScopedVariable path("PATH", dir.path());
  testing::internal::CaptureStdout();
  EXPECT_EQ(transcoder.exec(1), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ffmpeg ffmpeg -i in.mov -y -vcodec mpeg4 -b 691k -acodec libfaac -ab 76799 out.mp4\n");
}

TEST_F(CommandLineTest, OneAndTwoPassesAreTaken) {
  EXPECT_EQ(transcoder.getPasses(), 1);
  for (const int ignored : {0, 3, 5, -1}) {
    transcoder.setPasses(ignored);
  }
  EXPECT_EQ(transcoder.getPasses(), 1);
  transcoder.setPasses(2);
  EXPECT_EQ(transcoder.getPasses(), 2);
  transcoder.setPasses(5);
  EXPECT_EQ(transcoder.getPasses(), 2);
  transcoder.setPasses(1);
  EXPECT_EQ(transcoder.getPasses(), 1);
}

TEST_F(CommandLineTest, PreparingKeepsPartOfTheBudgetBack) {
  transcoder.inFile = dir.write("in.mov", "more than ten bytes");
  const std::pair<int, int> cases[] = {{1000000, 949999}, {0, 0},      {1, 0},
                                       {100, 94},         {-100, -94}, {INT32_MAX, 2040109464}};
  for (const auto& [asked, kept] : cases) {
    transcoder.maxOutputSize = asked;
    EXPECT_TRUE(transcoder.prepareParameters());
    EXPECT_EQ(transcoder.maxOutputSize, kept) << asked;
  }
}

TEST_F(CommandLineTest, RefusedParametersKeepTheBudget) {
  const fake_vela::Request request("{}");
  Transcoder refused(new VSCtx(fake_vela::handle(), request.message()));
  refused.inFile = dir / "missing";
  refused.maxOutputSize = 1000000;
  EXPECT_FALSE(refused.prepareParameters());
  EXPECT_EQ(refused.maxOutputSize, 1000000);
}

TEST_F(CommandLineTest, CleanupRemovesTheTenPassLogs) {
  transcoder.outFile = dir / "out.mp4";
  transcoder.setPasses(2);
  transcoder.cleanup();
  for (int number = 0; number <= 10; number++) {
    if (number != 5) dir.write("out.mp4-" + std::to_string(number) + ".log", "x");
  }
  dir.write("out.mp4", "x");

  transcoder.setPasses(1);
  transcoder.cleanup();
  EXPECT_EQ(readFile(dir / "out.mp4-0.log"), "x");

  transcoder.setPasses(2);
  transcoder.cleanup();
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    left.push_back(entry.path().filename());
  }
  EXPECT_THAT(left, testing::UnorderedElementsAre("out.mp4", "out.mp4-10.log"));
}

}  // namespace
