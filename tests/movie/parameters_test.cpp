#include "src/movie/mpeg_transcode_native.h"

#include <filesystem>

#include "tests/movie/movie_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Task final : public MpegTranscodeNative {
 public:
  using MpegTranscodeNative::audioEncoder;
  using MpegTranscodeNative::audioSamplingRate;
  using MpegTranscodeNative::bitrateAudio;
  using MpegTranscodeNative::bitrateVideo;
  using MpegTranscodeNative::clipLengthMs;
  using MpegTranscodeNative::inputFileSize;
  using MpegTranscodeNative::maxBitrate;
  using MpegTranscodeNative::maxOutputSize;
  using MpegTranscodeNative::minBitrateAudio;
  using MpegTranscodeNative::minBitrateVideo;
  using MpegTranscodeNative::MpegTranscodeNative;
  using MpegTranscodeNative::outputExtension;
  using MpegTranscodeNative::parseVSParameters;
  using MpegTranscodeNative::picSize;
  using MpegTranscodeNative::startOffsetMs;
  using MpegTranscodeNative::videoEncoder;
  using MpegTranscodeNative::videoFrameRate;
  using TaskBase::ctx;
  using TranscodeBase::inFile;
  using TranscodeBase::outFile;

  LaunchResult run() override { return LaunchDone; }
  void setPasses(int count) override { passesAsked.push_back(count); }

  std::vector<int> passesAsked;
};

class ParametersTest : public MovieTest {
 protected:
  bool parse(const std::string& members) {
    dsjson::JValue params = parsed(R"({"inFile":"/in","outFile":"/out.mp4")" + members + "}");
    return task.parseVSParameters(params);
  }
  // Prepares for an input of that size.
  bool prepare(const std::string& outFile, int64_t sizeBytes = 11) {
    task.inFile = dir.write("in.mov", "");
    std::filesystem::resize_file(task.inFile, static_cast<uintmax_t>(sizeBytes));
    task.outFile = outFile;
    return task.prepareParameters();
  }
  void expectRefused(bool succeeded, const std::string& errorText, const std::string& warning) {
    EXPECT_FALSE(succeeded);
    EXPECT_THAT(request.replies(), IsEmpty());
    EXPECT_EQ(warnings().back(), warning);
    task.ctx->replyFail();
    EXPECT_EQ(onlyReply(request), failure(errorText));
  }

  fake_vela::Request request{"{}"};
  Task task{new VSCtx(fake_vela::handle(), request.message())};
};

TEST_F(ParametersTest, InitialValues) {
  EXPECT_EQ(task.mpegInfo, nullptr);
  EXPECT_EQ(task.minBitrateVideo, 32000);
  EXPECT_EQ(task.minBitrateAudio, 4000);
  EXPECT_TRUE(parse(""));
  EXPECT_EQ(task.inFile, "/in");
  EXPECT_EQ(task.outFile, "/out.mp4");
  EXPECT_EQ(task.picSize + task.videoEncoder + task.audioEncoder + task.outputExtension, "");
  EXPECT_EQ(task.videoFrameRate, 0.0F);
  EXPECT_THAT(
      (std::vector<int>{task.startOffsetMs, task.clipLengthMs, task.maxOutputSize, task.maxBitrate,
                        task.bitrateVideo, task.bitrateAudio, task.audioSamplingRate}),
      testing::Each(0));
  EXPECT_THAT(task.passesAsked, IsEmpty());
}

TEST_F(ParametersTest, EveryMemberIsRead) {
  EXPECT_TRUE(parse(R"(,"clipLength":1.5,"startOffset":2,"maxOutputSize":3,"audioCodec":"aac",
               "videoCodec":"h263","videoBitrate":4,"audioBitrate":5,"audioSamplingRate":6,
               "maxBitrate":7,"passes":3,"picSize":"auto","videoFrameRate":29.97)"));
  EXPECT_EQ(task.clipLengthMs, 1500);
  EXPECT_EQ(task.startOffsetMs, 2000);
  EXPECT_EQ(task.maxOutputSize, 3);
  EXPECT_EQ(task.audioEncoder, "aac");
  EXPECT_EQ(task.videoEncoder, "h263");
  EXPECT_EQ(task.bitrateVideo, 4);
  EXPECT_EQ(task.bitrateAudio, 5);
  EXPECT_EQ(task.audioSamplingRate, 6);
  EXPECT_EQ(task.maxBitrate, 7);
  EXPECT_THAT(task.passesAsked, ElementsAre(3));
  EXPECT_EQ(task.picSize, "auto");
  EXPECT_EQ(task.videoFrameRate, 29.97F);
}

TEST_F(ParametersTest, MembersOfAWrongTypeAreIgnored) {
  EXPECT_TRUE(parse(R"(,"clipLength":"1","startOffset":null,"maxOutputSize":"3","audioCodec":1,
               "videoCodec":{},"videoBitrate":[4],"audioBitrate":1.5,"audioSamplingRate":true,
               "maxBitrate":3000000000,"passes":"2","picSize":false,"videoFrameRate":"25")"));
  EXPECT_EQ(task.picSize + task.videoEncoder + task.audioEncoder, "");
  EXPECT_EQ(task.videoFrameRate, 0.0F);
  EXPECT_THAT(
      (std::vector<int>{task.startOffsetMs, task.clipLengthMs, task.maxOutputSize, task.maxBitrate,
                        task.bitrateVideo, task.bitrateAudio, task.audioSamplingRate}),
      testing::Each(0));
  EXPECT_THAT(task.passesAsked, IsEmpty());
}

TEST_F(ParametersTest, SecondsAreCutToMilliseconds) {
  const std::pair<const char*, int32_t> cases[] = {{"12.3456", 12345},
                                                   {"0.3", 299},
                                                   {"1.5", 1500},
                                                   {"2.01", 2009},
                                                   {"-0.3", -299},
                                                   {"0.0009", 0},
                                                   {"2147483.647", 2147483646},
                                                   {"2147484", INT32_MIN},
                                                   {"-2147484", INT32_MIN},
                                                   {"1e300", INT32_MIN}};
  for (const auto& [seconds, ms] : cases) {
    EXPECT_TRUE(parse(std::string(R"(,"clipLength":)") + seconds));
    EXPECT_EQ(task.clipLengthMs, ms) << seconds;
    EXPECT_TRUE(parse(std::string(R"(,"startOffset":)") + seconds));
    EXPECT_EQ(task.startOffsetMs, ms) << seconds;
  }
}

TEST_F(ParametersTest, PathsAreNeeded) {
  dsjson::JValue params = parsed(R"({"outFile":"/out.mp4","passes":2})");
  EXPECT_FALSE(task.parseVSParameters(params));
  EXPECT_THAT(task.passesAsked, IsEmpty());
  task.ctx->replyFail();
  EXPECT_EQ(onlyReply(request), failure("Could not parse param inFile"));
}

TEST_F(ParametersTest, InputOf10BytesIsNoMedia) {
  const bool succeeded = prepare("/out.mp4", 10);
  expectRefused(succeeded, "Input file is not a media file",
                "Input file \"" + task.inFile + "\" is not a media file\n");
}

TEST_F(ParametersTest, InputOf11BytesPasses) {
  EXPECT_TRUE(prepare("/out.mp4", 11));
  EXPECT_EQ(task.inputFileSize, 11);
  EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(ParametersTest, InputOf2GiBIsNoMedia) {
  EXPECT_TRUE(prepare("/out.mp4", INT32_MAX));
  const bool succeeded = prepare("/out.mp4", int64_t{INT32_MAX} + 1);
  expectRefused(succeeded, "Input file is not a media file",
                "Input file \"" + task.inFile + "\" is not a media file\n");
}

TEST_F(ParametersTest, MissingInputComesBeforeMissingOutput) {
  task.inFile = "/missing";
  expectRefused(task.prepareParameters(), "Input file is not a media file",
                "Input file \"/missing\" is not a media file\n");
}

TEST_F(ParametersTest, MissingOutput) {
  expectRefused(prepare(""), "Missing output file", "Missing output file");
}

TEST_F(ParametersTest, OutputOfThreeCharacters) {
  expectRefused(prepare("mp4"), "Output file name is not a media file",
                "Error output file name \"mp4\"");
}

TEST_F(ParametersTest, ExtensionIsTheLastFourCharacters) {
  EXPECT_TRUE(prepare("a.mp4"));
  EXPECT_EQ(task.outputExtension, ".mp4");
  EXPECT_TRUE(prepare(".3gp"));
  EXPECT_EQ(task.outputExtension, ".3gp");
  task.videoEncoder = "flv";
  EXPECT_TRUE(prepare("/a/b.jpeg"));
  EXPECT_EQ(task.outputExtension, "jpeg");
}

TEST_F(ParametersTest, CodecsFollowTheExtension) {
  EXPECT_TRUE(prepare("a.3gp"));
  EXPECT_EQ(task.videoEncoder, "h263");
  EXPECT_EQ(task.audioEncoder, "aac");
  task.videoEncoder = task.audioEncoder = "";
  EXPECT_TRUE(prepare("a.mp4"));
  EXPECT_EQ(task.videoEncoder, "mpeg4");
  EXPECT_EQ(task.audioEncoder, "aac");
}

TEST_F(ParametersTest, CodecsThatWereAskedForStay) {
  task.videoEncoder = "mpeg4";
  task.audioEncoder = "amrnb";
  EXPECT_TRUE(prepare("a.3gp"));
  EXPECT_EQ(task.videoEncoder, "mpeg4");
  EXPECT_EQ(task.audioEncoder, "amrnb");
  EXPECT_TRUE(prepare("a.unknown"));
}

TEST_F(ParametersTest, UnknownExtensionNeedsTheVideoCodec) {
  task.audioEncoder = "aac";
  expectRefused(prepare("a.MP4"), "video encoder not specified", "video encoder not specified\n");
}

TEST_F(ParametersTest, UnknownExtensionNeedsTheAudioCodec) {
  task.videoEncoder = "mpeg4";
  expectRefused(prepare("a.avi"), "audio encoder not specified", "audio encoder not specified\n");
}

TEST_F(ParametersTest, CopiedVideoNeedsTheAudioBitrate) {
  task.videoEncoder = "copy";
  task.audioEncoder = "aac";
  task.maxBitrate = 1;
  expectRefused(
      prepare("a.mp4"),
      "when copy video and transcode audio,  bitrateAudio must be explicitly specified",
      "when copy video and transcode audio,  bitrateAudio must be explicitly specified\n");
  EXPECT_THAT(warnings(), ElementsAre("ignore maxBitrate when videoEncoder=copy", testing::_));
}

TEST_F(ParametersTest, CopiedVideoDropsItsLimits) {
  task.videoEncoder = "copy";
  task.bitrateAudio = 64000;
  task.bitrateVideo = task.maxOutputSize = task.maxBitrate = -1;
  EXPECT_TRUE(prepare("a.mp4"));
  EXPECT_EQ(task.bitrateAudio, 64000);
  EXPECT_EQ(task.bitrateVideo, 0);
  EXPECT_EQ(task.maxOutputSize, 0);
  EXPECT_EQ(task.maxBitrate, 0);
  EXPECT_THAT(warnings(), ElementsAre("ignore bitrateVideo when videoEncoder=copy",
                                      "ignore maxOutputSize when videoEncoder=copy",
                                      "ignore maxBitrate when videoEncoder=copy"));
}

TEST_F(ParametersTest, CopiedAudioNeedsTheVideoBitrate) {
  task.audioEncoder = "copy";
  expectRefused(
      prepare("a.mp4"),
      "when copy audio and transcode video,  bitrateVideo must be explicitly specified",
      "when copy audio and transcode video,  bitrateVideo must be explicitly specified\n");
}

TEST_F(ParametersTest, CopiedAudioDropsItsLimits) {
  task.audioEncoder = "copy";
  task.bitrateVideo = 64000;
  task.bitrateAudio = task.maxOutputSize = task.maxBitrate = 5;
  EXPECT_TRUE(prepare("a.mp4"));
  EXPECT_EQ(task.bitrateVideo, 64000);
  EXPECT_EQ(task.bitrateAudio, 0);
  EXPECT_THAT(warnings(), ElementsAre("ignore bitrateAudio when audioEncoder=copy",
                                      "ignore maxOutputSize when audioEncoder=copy",
                                      "ignore maxBitrate when audioEncoder=copy"));
}

TEST_F(ParametersTest, CopyingBothNeedsNothing) {
  task.videoEncoder = task.audioEncoder = "copy";
  task.bitrateVideo = task.bitrateAudio = task.maxOutputSize = task.maxBitrate = 5;
  EXPECT_TRUE(prepare("a.MP4"));
  EXPECT_EQ(task.bitrateVideo + task.bitrateAudio + task.maxOutputSize + task.maxBitrate, 0);
  EXPECT_THAT(warnings(), ElementsAre("ignore bitrateVideo when videoEncoder=copy",
                                      "ignore maxOutputSize when videoEncoder=copy",
                                      "ignore maxBitrate when videoEncoder=copy",
                                      "ignore bitrateAudio when audioEncoder=copy"));
}

// The order of init() and the base class's pass count.

class Ordered final : public MpegTranscodeNative {
 public:
  using MpegTranscodeNative::MpegTranscodeNative;
  LaunchResult run() override { return LaunchDone; }
  bool prepareParameters() override {
    trace += "prepare ";
    return succeeds;
  }
  bool calculateBitrates() override {
    trace += "calculate";
    return succeeds;
  }
  std::string trace;
  bool succeeds = true;
};

TEST_F(ParametersTest, InitPreparesThenCalculates) {
  Ordered ordered(nullptr);
  EXPECT_TRUE(ordered.init());
  EXPECT_EQ(ordered.trace, "prepare calculate");
  ordered.trace = "";
  ordered.succeeds = false;
  EXPECT_FALSE(ordered.init());
  EXPECT_EQ(ordered.trace, "prepare ");
}

TEST_F(ParametersTest, BaseClassKnowsOnePassOnly) {
  Ordered ordered(nullptr);
  ordered.setPasses(2);
  EXPECT_EQ(ordered.getPasses(), 1);
}

}  // namespace
