// Encodes that cannot succeed: exit 1, a clear line, the old file as it was, nothing left behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/ffmpeg/program_run.h"
#include "tests/support/fake_ffmpeg.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class FailureTest : public testing::Test {
 protected:
  FailureTest() { writeFile(out, "the old file"); }

  RunResult run(const std::string& input, std::vector<std::string> words,
                const std::vector<std::string>& environment = {}) {
    words.insert(words.begin(), {"-i", input, "-y"});
    words.push_back(out);
    return runFfmpeg(words, environment);
  }

  void expectFailure(const RunResult& result, const std::string& words) {
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr(words));
    EXPECT_THAT(result.err, testing::Not(HasSubstr(".tarn-ffmpeg")));
    EXPECT_EQ(readFile(out), "the old file");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("out.mp4"));
  }

  RunResult runFake(const std::string& script, std::vector<std::string> words,
                    const std::vector<std::string>& environment = {}) {
    const FakeFfmpeg fake(script);
    return run(movieClip(ClipRecipe{}), std::move(words), environment);
  }

  TempDir folder;
  const std::string out = folder / "out.mp4";
};

const std::vector<std::string> kPlain = {"-vcodec", "mpeg4", "-acodec", "libfaac"};

TEST_F(FailureTest, BadInput) {
  expectFailure(run(folder / "none.mp4", kPlain), "none.mp4: No such file or directory\n");
  expectFailure(run(textFile("text.mp4", std::string(5000, 'x')), kPlain), "text.mp4: ");
  expectFailure(run(textFile("list.mp4", "ffconcat version 1.0\nfile '/etc/passwd'\n"), kPlain),
                "list.mp4: ");
}

TEST_F(FailureTest, EncoderOfAnUnknownName) {
  const RunResult result = run(movieClip(ClipRecipe{}), {"-vcodec", "nosuchcodec"});
  expectFailure(result, "Unknown encoder 'nosuchcodec'\n");
  EXPECT_THAT(result.err, HasSubstr("ffmpeg: the encoder failed\n"));
}

TEST_F(FailureTest, CodecThatTheContainerCannotHold) {
  expectFailure(run(movieClip(ClipRecipe{}), {"-vcodec", "wmv2", "-an"}), "wmv2");
}

TEST_F(FailureTest, StartBeyondTheEnd) {
  expectFailure(run(movieClip(ClipRecipe{}), {"-vcodec", "mpeg4", "-ss", "7.5"}),
                "the clip starts at 7.5 s, beyond the end of the input\n");
}

TEST_F(FailureTest, InputCutShort) {
  for (const double seconds : {3.0, 8.0}) {
    const std::string whole = readFile(movieClip({.name = "t.mkv", .seconds = seconds}));
    const std::string half = textFile("half.mkv", whole.substr(0, whole.size() * 2 / 5));
    expectFailure(run(half, kPlain), "could be read: the input is damaged or cut short\n");
  }
}

TEST_F(FailureTest, FoldersThatCannotBeMade) {
  const RunResult result =
      runFfmpeg({"-i", movieClip(ClipRecipe{}), "-y", "-vcodec", "mpeg4", "/proc/no/out.mp4"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "ffmpeg: cannot write in /proc/no: No such file or directory\n");
}

TEST_F(FailureTest, FoldersThatWereMadeForNothingGo) {
  const std::string deep = folder / "a/b/c/out.mp4";
  const RunResult result =
      runFfmpeg({"-i", movieClip(ClipRecipe{}), "-y", "-vcodec", "nosuchcodec", deep});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("out.mp4"));
}

TEST_F(FailureTest, FoldersOfTheFirstRunGoWithTheSecond) {
  std::filesystem::create_directory(folder / "a");
  const std::string deep = folder / "a/b/c/out.mp4";
  const std::string clip = movieClip(ClipRecipe{});
  ASSERT_EQ(runFfmpeg({"-i", clip, "-y", "-vcodec", "mpeg4", "-b", "100k", "-pass", "1",
                       "-passlogfile", deep, "-an", "-f", "mp4", "/dev/null"})
                .exitCode,
            0);
  EXPECT_TRUE(std::filesystem::exists(deep + "-0.log"));
  EXPECT_EQ(runFfmpeg({"-i", clip, "-y", "-vcodec", "mpeg4", "-b", "100k", "-pass", "2",
                       "-passlogfile", deep, "-acodec", "nosuchcodec", deep})
                .exitCode,
            1);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("a", "out.mp4"));
  EXPECT_TRUE(namesIn(folder / "a").empty());
}

TEST_F(FailureTest, OutputThatIsNoFile) {
  std::filesystem::create_directory(folder / "d.mp4");
  const RunResult result =
      runFfmpeg({"-i", movieClip(ClipRecipe{}), "-y", "-vcodec", "mpeg4", folder / "d.mp4"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("d.mp4: not a regular file\n"));
}

TEST_F(FailureTest, OutputThatIsTheInput) {
  std::filesystem::copy_file(movieClip(ClipRecipe{}), folder / "clip.mp4");
  std::filesystem::create_symlink(folder / "clip.mp4", folder / "link.mp4");
  const RunResult result =
      runFfmpeg({"-i", folder / "clip.mp4", "-y", "-vcodec", "mpeg4", folder / "link.mp4"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("the output is the input\n"));
}

TEST_F(FailureTest, ExistingFilesAreOverwrittenOnlyOnRequest) {
  const RunResult result = runFfmpeg({"-i", movieClip(ClipRecipe{}), "-vcodec", "mpeg4", out});
  expectFailure(result, "the file exists already (-y overwrites it)\n");
}

TEST_F(FailureTest, UnknownOption) {
  const RunResult result = run(movieClip(ClipRecipe{}), {"-vf", "hflip"});
  EXPECT_EQ(result.err, "ffmpeg: unknown option '-vf'\n");
  expectFailure(result, "unknown option");
}

TEST_F(FailureTest, EncoderThatDiesOfASignal) {
  expectFailure(runFake("echo '[mpeg4 @ 0x55] bad' >&2\nkill -SEGV $$\n", kPlain),
                "[mpeg4] bad\nffmpeg: the encoder died of signal 11 (Segmentation fault)\n");
}

TEST_F(FailureTest, EncoderThatClaimsSuccessWithoutAResult) {
  expectFailure(runFake("exit 0\n", kPlain), "ffmpeg: nothing could be encoded");
}

TEST_F(FailureTest, EncoderThatGetsNoFurther) {
  expectFailure(runFake("echo frame=1\nwhile :; do echo frame=1; sleep 0.05; done\n", kPlain,
                        {"TARN_FFMPEG_STALL_MS=300"}),
                "ffmpeg: the encoder made no progress and was ended\n");
}

TEST_F(FailureTest, EncoderThatIsBlocked) {
  expectFailure(runFake("exec sleep 60\n", kPlain, {"TARN_FFMPEG_STALL_MS=300"}),
                "ffmpeg: the encoder made no progress and was ended\n");
}

// Whoever runs now and then for a moment is not stuck, but kept waiting.
TEST_F(FailureTest, EncoderThatHardlyGetsToRun) {
  expectFailure(runFake("for i in 1 2 3 4 5 6; do sleep 0.25; done\nexit 1\n", kPlain,
                        {"TARN_FFMPEG_STALL_MS=1000"}),
                "ffmpeg: the encoder failed\n");
}

// The disk is not filled for a limit that was lost long ago.
TEST_F(FailureTest, EncoderThatWritesAndWrites) {
  const RunResult result = runFake(
      "for last; do :; done\n"
      "while :; do head -c 200000 /dev/zero >> \"${last#file:}\"; n=$((n + 1)); echo frame=$n; "
      "sleep 0.02; done\n",
      {"-vcodec", "mpeg4", "-s", "160x120", "-r", "25", "-b", "30k", "-an", "-fs", "20000"});
  expectFailure(result, "ffmpeg: the encoder wrote far more than was asked for and was ended\n");
}

TEST_F(FailureTest, NoEncoderAtAll) {
  expectFailure(run(movieClip(ClipRecipe{}), kPlain, {"TARN_FFMPEG_STARTED=1"}),
                "no encoder: there is no other ffmpeg");
}

// A file system of 200 kB that goes with the last process in it; null where that is not allowed.
TEST_F(FailureTest, FullDisk) {
  const std::string clip = movieClip({.seconds = 4, .size = "320x240"});
  const std::string script = folder / "full.sh";
  writeFile(script, "mount -t tmpfs -o size=200k tmpfs '" + folder / "small" +
                        "' || exit 99\n"
                        "echo old > '" +
                        folder / "small/out.mp4" + "'\n'" FFMPEG_UNDER_TEST "' -i '" + clip +
                        "' -y -vcodec mpeg4 -b 4000k -acodec libfaac '" + folder / "small/out.mp4" +
                        "' 2> '" + folder / "err" + "'\necho $? > '" + folder / "code" +
                        "'\nls -A '" + folder / "small" + "' > '" + folder / "names" + "'\ncat '" +
                        folder / "small/out.mp4" + "' >> '" + folder / "names" + "'\n");
  std::filesystem::create_directory(folder / "small");
  const std::string command = "unshare --user --map-root-user --mount sh '" + script + "'";
  const int status = system(command.c_str());
  if (status != 0) GTEST_SKIP() << "this machine allows no mount of our own";
  EXPECT_EQ(readFile(folder / "code"), "1\n");
  EXPECT_THAT(readFile(folder / "err"), HasSubstr("No space left on device"));
  EXPECT_EQ(readFile(folder / "names"), "out.mp4\nold\n");
}

}  // namespace
