#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/movie/failing_calls.h"
#include "tests/movie/movie_test.h"
#include "tests/support/fake_ffmpeg.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kReport[] =
    "  Duration: 00:00:10.00, start: 0.000000, bitrate: 1000 kb/s\n"
    "    Stream #0.0(und): Video: mpeg4, yuv420p, 640x480, 900 kb/s, 25 fps, 50 tbr, 25 tbn";

class ResizeMovieTest : public MovieTest {
 protected:
  std::string payload(const std::string& members) const {
    return R"({"inFile":")" + inFile + R"(","outFile":")" + outFile + "\"" + members + "}";
  }
  static void call(const fake_vela::Request& request) {
    EXPECT_TRUE(TranscodeServer::resizeMovie(fake_vela::handle(), request.message(), nullptr));
  }

  const std::string inFile = dir.write("in.mov", std::string(1000000, 'x'));
  const std::string outFile = dir / "out.mp4";
};

TEST_F(ResizeMovieTest, OnePass) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport));
  const fake_vela::Request request(payload(""));
  call(request);
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_THAT(request.replies(), ElementsAre(R"({"returnValue":true})"));
  EXPECT_EQ(request.referencesEverTaken(), 2);
  EXPECT_THAT(ffmpeg.calls(),
              ElementsAre(ElementsAre("-i", inFile),
                          ElementsAre("-i", inFile, "-y", "-vcodec", "mpeg4", "-b", "691k", "-r",
                                      "25.000", "-acodec", "libfaac", "-ab", "76799", outFile)));
}

TEST_F(ResizeMovieTest, TwoPassesReplyAfterTheSecondAndLeaveNoLogs) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport) + "touch '" + outFile + "-0.log'");
  const fake_vela::Request request(payload(R"(,"passes":2,"maxOutputSize":500000)"));
  call(request);
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_THAT(request.replies(), ElementsAre(R"({"returnValue":true})"));
  EXPECT_THAT(ffmpeg.calls(),
              ElementsAre(ElementsAre("-i", inFile),
                          ElementsAre("-i", inFile, "-y", "-vcodec", "mpeg4", "-b", "328k", "-r",
                                      "25.000", "-pass", "1", "-passlogfile", outFile, "-an", "-f",
                                      "mp4", "/dev/null"),
                          ElementsAre("-i", inFile, "-y", "-vcodec", "mpeg4", "-b", "328k", "-r",
                                      "25.000", "-pass", "2", "-passlogfile", outFile, "-acodec",
                                      "libfaac", "-ab", "36479", "-fs", "474999", outFile)));
  EXPECT_FALSE(std::filesystem::exists(outFile + "-0.log"));
}

TEST_F(ResizeMovieTest, HandlerReturnsWhileTheTranscodeRuns) {
  const std::string gate = dir / "gate";
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport) + "read line < '" + gate + "'");
  const int before = taskCount();
  const fake_vela::Request request(payload(""));
  call(request);
  EXPECT_EQ(taskCount(), before + 2);
  EXPECT_EQ(request.references(), 2);
  EXPECT_THAT(request.replies(), IsEmpty());

  std::ofstream(gate) << "go\n";
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_THAT(request.replies(), SizeIs(1));
}

TEST_F(ResizeMovieTest, FailedFirstPassIsAnsweredWithItsReport) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport) + "touch '" + outFile +
                          "-0.log'; echo unknown codec >&2; exit 1");
  const fake_vela::Request request(payload(R"(,"passes":2)"));
  call(request);
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_EQ(onlyReply(request),
            failure("transcode worker exit with non zero code", "unknown codec\n"));
  EXPECT_THAT(ffmpeg.calls(), SizeIs(2));
  EXPECT_FALSE(std::filesystem::exists(outFile + "-0.log"));
}

TEST_F(ResizeMovieTest, AbortedFfmpegIsAnswered) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport) + "kill -ABRT $$");
  const fake_vela::Request request(payload(""));
  call(request);
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_EQ(onlyReply(request), failure("transcode worker aborted"));
}

TEST_F(ResizeMovieTest, UnreadableInputStartsNothingAndIsNotAnswered) {
  const FakeFfmpeg ffmpeg(reportsOnProbe("in.mov: Invalid data found when processing input"));
  const fake_vela::Request request(payload(""));
  call(request);
  EXPECT_EQ(request.references(), 0);
  EXPECT_EQ(request.referencesEverTaken(), 1);
  EXPECT_THAT(request.replies(), IsEmpty());
  EXPECT_THAT(ffmpeg.calls(), SizeIs(1));
}

TEST_F(ResizeMovieTest, RequestWithoutAnInputIsAnsweredOnce) {
  const fake_vela::Request request(R"({"outFile":"out.mp4"})");
  call(request);
  EXPECT_EQ(onlyReply(request), failure("Could not parse inFile param string\n"));
  EXPECT_EQ(request.references(), 0);
}

TEST_F(ResizeMovieTest, MalformedRequestIsAnsweredOnce) {
  const fake_vela::Request request("{");
  call(request);
  EXPECT_EQ(onlyReply(request), failure("malformed command\n"));
}

TEST_F(ResizeMovieTest, RequestWithoutAnOutputIsAnsweredOnce) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport));
  const fake_vela::Request request(R"({"inFile":")" + inFile + R"("})");
  call(request);
  EXPECT_EQ(onlyReply(request), failure("Could not parse param outFile"));
  EXPECT_EQ(request.references(), 0);
  EXPECT_EQ(request.referencesEverTaken(), 2);
  EXPECT_THAT(ffmpeg.calls(), SizeIs(1));
}

TEST_F(ResizeMovieTest, BudgetTooSmallIsAnsweredOnce) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport));
  const fake_vela::Request request(payload(R"(,"maxOutputSize":1000)"));
  call(request);
  EXPECT_EQ(onlyReply(request), failure("can't reach targetBitrate, maxOutputSize too small?\n"));
  EXPECT_THAT(ffmpeg.calls(), SizeIs(1));
}

TEST_F(ResizeMovieTest, ThreadThatFailsIsNotAnswered) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport));
  const fake_vela::Request request(payload(""));
  gFailingCalls.pthreadCreate = 1;
  call(request);
  EXPECT_THAT(request.replies(), IsEmpty());
  EXPECT_EQ(request.references(), 0);
  EXPECT_THAT(ffmpeg.calls(), SizeIs(1));
}

TEST_F(ResizeMovieTest, UnknownNumberOfPassesMeansOne) {
  const FakeFfmpeg ffmpeg(reportsOnProbe(kReport));
  const fake_vela::Request request(payload(R"(,"passes":5)"));
  call(request);
  ASSERT_TRUE(request.waitUntilReleased());
  EXPECT_THAT(ffmpeg.calls(), SizeIs(2));
}

}  // namespace
