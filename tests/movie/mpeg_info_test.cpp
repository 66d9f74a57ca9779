#include "src/movie/mpeg_info.h"

#include <filesystem>

#include "tests/movie/movie_test.h"
#include "tests/support/fake_ffmpeg.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Info final : public MpegInfo {
 public:
  using MpegInfo::inFile;
  using MpegInfo::MpegInfo;
  LaunchResult run() override {
    runs++;
    replySuccess();
    return LaunchDone;
  }
  int runs = 0;
};

class MpegInfoTest : public MovieTest {
 protected:
  std::string replyOf(int32_t fileSize, int32_t bitrate, int32_t clipLengthMs) {
    const fake_vela::Request request(R"({"inFile":"a.mp4"})");
    {
      Info info(new VSCtx(fake_vela::handle(), request.message()));
      info.fileSize = fileSize;
      info.bitrate = bitrate;
      info.clipLength = clipLengthMs;
      EXPECT_EQ(info.launch(), LaunchDone);
    }
    return request.replies().size() == 1 ? request.replies()[0] : "";
  }
};

TEST_F(MpegInfoTest, ReplyHasTheLengthInSeconds) {
  EXPECT_EQ(replyOf(10000000, 1000000, 750),
            R"({"returnValue":true,"fileSize":10000000,"bitrate":1000000,"clipLength":0.75})");
}

TEST_F(MpegInfoTest, WholeSecondsAreAFloatingPointNumberToo) {
  EXPECT_EQ(replyOf(10000000, 1000000, 80000),
            R"({"returnValue":true,"fileSize":10000000,"bitrate":1000000,"clipLength":80.0})");
}

TEST_F(MpegInfoTest, AllStartsAtZero) {
  EXPECT_EQ(replyOf(0, 0, 0), R"({"returnValue":true,"fileSize":0,"bitrate":0,"clipLength":0.0})");
}

TEST_F(MpegInfoTest, QuietSendsNothing) {
  const fake_vela::Request request(R"({"inFile":"a.mp4"})");
  Info info(new VSCtx(fake_vela::handle(), request.message()));
  info.quiet = true;
  EXPECT_EQ(info.launch(), LaunchDone);
  EXPECT_EQ(info.runs, 1);
  EXPECT_EQ(info.inFile, "a.mp4");
  EXPECT_THAT(request.replies(), IsEmpty());
}

TEST_F(MpegInfoTest, RequestWithoutAnInputIsRefusedBeforeItRuns) {
  for (const char* payload : {"{}", R"({"inFile":3})", R"({"inFile":null})", "[]"}) {
    const fake_vela::Request request(payload);
    {
      Info info(new VSCtx(fake_vela::handle(), request.message()));
      EXPECT_EQ(info.launch(), LaunchFailed);
      EXPECT_EQ(info.runs, 0);
    }
    EXPECT_EQ(onlyReply(request), failure("Could not parse inFile param string\n")) << payload;
  }
}

TEST_F(MpegInfoTest, MalformedRequestIsRefused) {
  const fake_vela::Request request("{");
  Info info(new VSCtx(fake_vela::handle(), request.message()));
  EXPECT_EQ(info.launch(), LaunchFailed);
  EXPECT_EQ(onlyReply(request), failure("malformed command\n"));
}

TEST_F(MpegInfoTest, TaskIsCountedWhileItLives) {
  const int before = taskCount();
  const std::unique_ptr<MpegInfo> info(createMpegInfo(nullptr));
  EXPECT_EQ(taskCount(), before + 1);
  EXPECT_FALSE(info->quiet);
  EXPECT_EQ(info->clipLength, 0);
}

// The handler.

constexpr char kReport[] =
    "  Duration: 00:01:20.00, start: 0.000000, bitrate: 1000 kb/s\n"
    "    Stream #0.0(und): Video: mpeg4, yuv420p, 640x480, 900 kb/s, 25 fps, 25 tbr, 25 tbn";

TEST_F(MpegInfoTest, HandlerReplies) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport));
  const std::string path = dir.write("a.mp4", "");
  std::filesystem::resize_file(path, 10000000);
  const fake_vela::Request request(R"({"inFile":")" + path + R"("})");

  EXPECT_TRUE(TranscodeServer::getMovieInfo(fake_vela::handle(), request.message(), nullptr));
  EXPECT_THAT(request.replies(),
              ElementsAre(R"({"returnValue":true,"fileSize":10000000,"bitrate":1000000,)"
                          R"("clipLength":80.0})"));
  EXPECT_EQ(request.references(), 0);
  EXPECT_EQ(request.referencesEverTaken(), 1);
}

TEST_F(MpegInfoTest, HandlerLeavesAFailedProbeUnanswered) {
  const fake_vela::Request request(R"({"inFile":")" + (dir / "missing") + R"("})");
  EXPECT_TRUE(TranscodeServer::getMovieInfo(fake_vela::handle(), request.message(), nullptr));
  EXPECT_THAT(request.replies(), IsEmpty());
  EXPECT_EQ(request.references(), 0);
}

TEST_F(MpegInfoTest, HandlerAnswersARequestWithoutAnInput) {
  const fake_vela::Request request("{}");
  EXPECT_TRUE(TranscodeServer::getMovieInfo(fake_vela::handle(), request.message(), nullptr));
  EXPECT_EQ(onlyReply(request), failure("Could not parse inFile param string\n"));
  EXPECT_EQ(request.references(), 0);
}

}  // namespace
