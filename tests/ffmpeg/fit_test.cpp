// The promise, against the real encoder: the whole clip within its limit, or none and the measured
// smallest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// Hard to encode: noise in motion, with a tone.
std::string hardClip() {
  return movieClip("hard.mp4",
                   {"-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=4", "-f", "lavfi",
                    "-i", "sine=duration=4", "-vf", "noise=alls=40:allf=t", "-c:v", "libx264",
                    "-preset", "ultrafast", "-qp", "20", "-c:a", "aac"});
}

class FitTest : public testing::Test {
 protected:
  RunResult run(const std::string& clip, std::vector<std::string> words) {
    words.insert(words.begin(), {"-i", clip, "-y", "-vcodec", codec});
    words.push_back(out);
    return runFfmpeg(words);
  }
  // Both runs of two passes, as the daemon starts them.
  RunResult runTwice(const std::string& clip, const std::string& rate,
                     std::vector<std::string> words) {
    const RunResult first = runFfmpeg({"-i", clip, "-y", "-vcodec", codec, "-b", rate, "-pass", "1",
                                       "-passlogfile", out, "-an", "-f", "mp4", "/dev/null"});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    words.insert(words.begin(), {"-b", rate, "-pass", "2", "-passlogfile", out});
    const RunResult second = run(clip, std::move(words));
    for (int i = 0; i < 10; ++i) {
      fs::remove(out + "-" + std::to_string(i) + ".log");
    }
    return second;
  }
  void expectWhole(const RunResult& result, double seconds, uintmax_t maxBytes) {
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_LE(fs::file_size(out), maxBytes);
    EXPECT_EQ(decodingErrors(out), "");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("out.mp4"));
    MediaFacts facts;
    std::string error;
    ASSERT_TRUE(probeMovie(out, kThoroughProbe, &facts, &error)) << error;
    EXPECT_NEAR(static_cast<double>(facts.durationUs) / 1e6, seconds, 0.1);
    made = facts;
  }

  TempDir folder;
  const std::string out = folder / "out.mp4";
  std::string codec = "mpeg4";
  MediaFacts made;
};

TEST_F(FitTest, OnePassKeepsTheWholeClipWithinItsSize) {
  const RunResult result =
      run(hardClip(), {"-b", "130k", "-acodec", "libfaac", "-ab", "14000", "-fs", "75000"});
  expectWhole(result, 4, 75000);
  EXPECT_GT(fs::file_size(out), 75000U * 85 / 100);
}

TEST_F(FitTest, TwoPassesKeepTheWholeClipWithinItsSize) {
  expectWhole(runTwice(hardClip(), "130k", {"-acodec", "libfaac", "-ab", "14000", "-fs", "75000"}),
              4, 75000);
  EXPECT_GT(fs::file_size(out), 75000U * 85 / 100);
}

TEST_F(FitTest, ASecondRunWithoutTheFirstsLogStartsFromScratch) {
  expectWhole(run(hardClip(), {"-b", "130k", "-pass", "2", "-passlogfile", out, "-acodec",
                               "libfaac", "-ab", "14000", "-fs", "75000"}),
              4, 75000);
}

TEST_F(FitTest, ABitrateIsAPromiseToo) {
  expectWhole(run(hardClip(), {"-b", "100k", "-acodec", "libfaac", "-ab", "16000"}), 4,
              116000 / 8 * 4 * 105 / 100);
}

int64_t smallestIn(const std::string& words) {
  std::smatch match;
  const std::regex pattern(" about ([0-9]+) b");
  return std::regex_search(words, match, pattern) ? strtoll(match[1].str().c_str(), nullptr, 10)
                                                  : 0;
}

TEST_F(FitTest, WhatCannotBeHadIsToldWithWhatCan) {
  const std::vector<std::string> words = {"-s",      "320x240", "-r",  "25",   "-b", "40k",
                                          "-acodec", "libfaac", "-ab", "8000", "-fs"};
  std::vector<std::string> tight = words;
  tight.push_back("25000");
  const RunResult refused = run(hardClip(), tight);
  EXPECT_EQ(refused.exitCode, 1);
  const int64_t smallest = smallestIn(refused.err);
  EXPECT_EQ(refused.err, "ffmpeg: the whole clip cannot be had in 25000 bytes: about " +
                             std::to_string(smallest) +
                             " bytes is the smallest at this picture size and frame rate\n");
  EXPECT_FALSE(fs::exists(out));
  EXPECT_TRUE(namesIn(folder.path()).empty());

  // As whoever reads it may ask: that, and what the daemon makes of it.
  for (const int64_t asked : {smallest, smallest * 95 / 100}) {
    std::vector<std::string> enough = words;
    enough[5] = "2000k";
    enough.push_back(std::to_string(asked));
    expectWhole(run(hardClip(), enough), 4, static_cast<uintmax_t>(asked));
  }
  std::vector<std::string> less = words;
  less[5] = "2000k";
  less.push_back(std::to_string(smallest * 90 / 100));
  EXPECT_EQ(run(hardClip(), less).exitCode, 1);
}

TEST_F(FitTest, ABitrateThatCannotBeHadIsToldWithOneThatCan) {
  const RunResult refused = run(hardClip(), {"-s", "320x240", "-r", "25", "-b", "30k", "-an"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.err, HasSubstr("cannot be had at 30000 bits per second: about "));
  const int64_t smallest = smallestIn(refused.err);
  expectWhole(run(hardClip(), {"-s", "320x240", "-r", "25", "-b",
                               std::to_string(smallest / 1000 + 1) + "k", "-an"}),
              4, static_cast<uintmax_t>(smallest + 1000) / 8 * 4 * 105 / 100);
}

// libavcodec's second pass dies of an abort when the bitrate is below its floor.
TEST_F(FitTest, AnAbortOfTheSecondPassIsNotTold) {
  const RunResult result =
      runTwice(movieClip("noise.mkv", {"-f", "lavfi", "-i",
                                       "nullsrc=size=160x120:rate=25:duration=2,geq=random(1)*255:"
                                       "128:128",
                                       "-c:v", "libx264", "-preset", "ultrafast"}),
               "32k", {"-s", "160x120", "-r", "25", "-an", "-fs", "8000"});
  if (result.exitCode == 0) {
    expectWhole(result, 2, 8000);
    return;
  }
  EXPECT_THAT(result.err, HasSubstr("ffmpeg: the whole clip cannot be had in "));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

TEST_F(FitTest, ASourceThatIsAsAskedIsCopied) {
  const std::string clip = movieClip({.name = "ready.mp4", .videoCodec = "mpeg4"});
  expectWhole(run(clip, {"-b", "4000k", "-acodec", "libfaac", "-ab", "64000"}), 2,
              fs::file_size(clip) + 1000);
  EXPECT_EQ(runSystemFfmpeg({"-i", out, "-map", "0:v", "-c", "copy", "-f", "md5", "-"}),
            runSystemFfmpeg({"-i", clip, "-map", "0:v", "-c", "copy", "-f", "md5", "-"}));
}

TEST_F(FitTest, FoldersAboveTheOutputAreMade) {
  const std::string deep = folder / "a/b/out.mp4";
  const RunResult result = runFfmpeg(
      {"-i", movieClip(ClipRecipe{}), "-y", "-vcodec", "mpeg4", "-b", "300k", "-an", deep});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(fs::exists(deep));
}

}  // namespace
