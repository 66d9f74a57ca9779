// Movies that cannot be read or made: the documented outcome, told at once.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>

#include "tests/e2e/movie_facts.h"
#include "tests/e2e/scripted_ffmpeg.h"
#include "tests/support/failure_reply.h"
#include "tests/support/movie_media.h"
#include "tests/support/wait_until.h"

namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;

constexpr char kNoReply[] = "org.freedesktop.DBus.Error.NoReply";

class MovieFailuresTest : public testing::Test {
 protected:
  std::string resize(const std::string& outFile, const std::string& members = "") {
    const auto movie = system.start("resizeMovie", movieRequest(clip, outFile, members));
    const auto result = system.client().wait(movie);
    EXPECT_TRUE(result.ok) << result.errorName << ": " << result.errorMessage;
    return result.reply;
  }

  InstalledSystem system;
  const TempDir& dir = system.files();
  const std::string out = dir / "out.mp4";
  const std::string clip = movieClip(ClipRecipe{});
};

TEST_F(MovieFailuresTest, WhatIsNoMovieGetsNoReplyAndIsToldAtOnce) {
  const std::string whole = readFile(clip);
  const std::string inputs[] = {dir.write("text.mp4", "no movie, but longer than ten bytes"),
                                dir.write("empty.mp4", ""),
                                dir.write("ten.mp4", "0123456789"),
                                dir.write("cut.mp4", whole.substr(0, whole.size() / 2)),
                                dir / "none.mp4",
                                dir.path(),
                                movieClip({.name = "a.m4a", .videoCodec = ""})};
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t daemon = system.daemonPid();
  for (const std::string& in : inputs) {
    for (const char* method : {"getMovieInfo", "resizeMovie"}) {
      const auto start = steady_clock::now();
      EXPECT_EQ(system.call(method, movieRequest(in, out)).errorName, kNoReply) << in;
      EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(20)) << in;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(system.daemonPid(), daemon);
}

TEST_F(MovieFailuresTest, ParametersThatCannotBeUsedAreNamed) {
  const std::string odd = dir / "out.mkv";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"", "", "Missing output file"},
      {"a.m", "", "Output file name is not a media file"},
      {out, R"("videoCodec":"copy")",
       "when copy video and transcode audio,  bitrateAudio must be explicitly specified"},
      {out, R"("audioCodec":"copy")",
       "when copy audio and transcode video,  bitrateVideo must be explicitly specified"},
      {odd, "", "video encoder not specified"},
      {odd, R"("videoCodec":"mpeg4")", "audio encoder not specified"},
      {dir / "out.MP4", "", "video encoder not specified"},
      {out, R"("maxOutputSize":5000)", R"(can't reach targetBitrate, maxOutputSize too small?\n)"},
      {out, R"("maxBitrate":30000)", R"(can't reach targetBitrate, maxOutputSize too small?\n)"},
  };
  for (const auto& [outFile, members, text] : cases) {
    EXPECT_EQ(resize(outFile, members), failure(text)) << outFile << " " << members;
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(MovieFailuresTest, RequestsThatCannotBeParsedAreNamed) {
  const auto reply = [this](const std::string& payload) {
    return system.call("resizeMovie", payload).reply;
  };
  EXPECT_EQ(reply("no json"), failure(R"(malformed command\n)"));
  EXPECT_EQ(reply("{}"), failure(R"(Could not parse inFile param string\n)"));
  EXPECT_EQ(reply(infoRequest(clip)), failure("Could not parse param outFile"));
}

TEST_F(MovieFailuresTest, FfmpegsOwnWordsAreTheDetail) {
  const std::string start =
      R"({"returnValue":false,"errorText":"transcode worker exit with non zero code","errorDetail":")";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {out, R"("videoCodec":"nosuch")", "Unknown encoder 'nosuch'"},
      {out, R"("videoCodec":"nosuch","passes":2)", "Unknown encoder 'nosuch'"},
      {out, R"("videoBitrate":800,"audioBitrate":8000)", "option -b cannot take '0k'"},
      {out, R"("videoFrameRate":-1)", "option -r cannot take '-1.000'"},
      {"/proc/none/out.mp4", "", "/proc/none: No such file or directory"},
      {out, R"("picSize":"640x480","videoFrameRate":24,"maxOutputSize":15000)",
       "the whole clip cannot be had in 14249 bytes: about "},
  };
  for (const auto& [outFile, members, words] : cases) {
    const std::string reply = resize(outFile, members);
    EXPECT_THAT(reply, testing::StartsWith(start));
    EXPECT_THAT(reply, HasSubstr(words));
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(MovieFailuresTest, AFailedSecondPassLeavesTheOldFileAndNoLogs) {
  std::filesystem::create_directory(dir / "made");
  dir.write("made/out.mp4", "old");
  EXPECT_THAT(resize(dir / "made/out.mp4", R"("audioCodec":"nosuch","passes":2)"),
              HasSubstr("Unknown encoder 'nosuch'"));
  // The reply comes before the pass logs go.
  EXPECT_TRUE(waitUntil([this] { return namesIn(dir / "made").size() == 1; }));
  EXPECT_EQ(readFile(dir / "made/out.mp4"), "old");
}

TEST(ScriptedMovieFailuresTest, AMovieWithoutLengthCannotBePlanned) {
  const ScriptedFfmpeg ffmpeg("exit 0", "echo 00:00:00.00");
  InstalledSystem system(ffmpeg.daemon());
  const std::string in = system.files().write("in.mp4", "more than ten bytes");
  const std::string out = system.files() / "out.mp4";
  EXPECT_EQ(system.call("resizeMovie", movieRequest(in, out)).reply,
            failure(R"(getOrignalLengthInMs() failed\n)"));
}

TEST(ScriptedMovieFailuresTest, AnAbortedEncodeIsNamed) {
  const ScriptedFfmpeg ffmpeg("echo last words >&2; kill -6 $$");
  InstalledSystem system(ffmpeg.daemon());
  const std::string in = system.files().write("in.mp4", std::string(1000000, 'x'));
  const std::string out = system.files() / "out.mp4";
  EXPECT_EQ(
      system.call("resizeMovie", movieRequest(in, out)).reply,
      R"({"returnValue":false,"errorText":"transcode worker aborted","errorDetail":"last words\n"})");
}

}  // namespace
