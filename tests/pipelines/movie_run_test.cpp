// Whole runs of the back end with the real elements.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>

#include "tests/pipelines/fake_elements.h"
#include "tests/pipelines/file_transcode.h"
#include "tests/pipelines/live_objects.h"
#include "tests/support/log_capture.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

using testing::IsEmpty;

namespace {

std::string outputOf(const std::string& command) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string text;
  char part[512];
  while (pipe && fgets(part, sizeof part, pipe.get()) != nullptr) {
    text += part;
  }
  return text;
}

double lengthSeconds(const std::string& path) {
  return atof(outputOf("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + path + "'")
                  .c_str());
}

// "h264,video" and the like, one a line.
std::string streams(const std::string& path) {
  return outputOf("ffprobe -v error -show_entries stream=codec_name,codec_type -of csv=p=0 '" +
                  path + "'");
}

// Runs a task and looks at what it leaves behind.
struct Outcome {
  LaunchResult result;
  bool error = false;
};
Outcome runAndExpectNothingLeft(const std::string& in, const std::string& out) {
  g_main_context_iteration(nullptr, FALSE);  // makes what the first use of the context opens
  EXPECT_TRUE(waitForObjects({})) << "left by an earlier test";
  const int threads = threadCount();
  const int descriptors = descriptorCount();
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  {
    LogCapture log;
    FileTranscode task(in, out);
    outcome.result = task.run();
    EXPECT_EQ(task.pipeline, nullptr);
    EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), IsEmpty());
    outcome.error = reportsError(log.at(G_LOG_LEVEL_MESSAGE));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
  EXPECT_TRUE(waitForObjects({})) << testing::PrintToString(liveObjects());
  EXPECT_TRUE(waitForThreads(threads)) << threadCount() << " threads, before " << threads;
  EXPECT_TRUE(waitForDescriptors(descriptors)) << descriptorCount();
  return outcome;
}

void expectGoodMovie(const std::string& path, double seconds) {
  EXPECT_NEAR(lengthSeconds(path), seconds, 0.1);
  EXPECT_EQ(decodingErrors(path), "");
  EXPECT_THAT(streams(path), testing::HasSubstr("video"));
  EXPECT_THAT(streams(path), testing::HasSubstr("aac,audio"));
}

struct Source {
  const char* title;
  ClipRecipe recipe;
};

void PrintTo(const Source& source, std::ostream* out) {
  *out << source.title;
}

class MovieRun : public testing::TestWithParam<Source> {
 protected:
  TempDir folder;
};

TEST_P(MovieRun, BecomesAnMpeg4File) {
  const std::string in = movieClip(GetParam().recipe);
  const Outcome outcome = runAndExpectNothingLeft(in, folder / "out.mp4");
  EXPECT_EQ(outcome.result, LaunchDone);
  EXPECT_FALSE(outcome.error);
  expectGoodMovie(folder / "out.mp4", lengthSeconds(in));
}

ClipRecipe recipe(const char* name, const char* video, const char* audio,
                  const std::vector<std::string>& more = {}) {
  ClipRecipe result;
  result.name = name;
  result.videoCodec = video;
  result.audioCodec = audio;
  result.more = more;
  return result;
}

ClipRecipe oddClip() {
  ClipRecipe result = recipe("odd.avi", "mjpeg", "pcm_s16le", {"-ac", "1", "-ar", "8000"});
  result.size = "161x121";
  return result;
}

ClipRecipe variableRateClip() {
  return recipe("variable.mkv", "libx264", "aac",
                {"-vf", "select='not(eq(mod(n,5),1))'", "-fps_mode", "vfr"});
}

INSTANTIATE_TEST_SUITE_P(
    Sources, MovieRun,
    testing::Values(Source{"Mp4", recipe("clip.mp4", "libx264", "aac")},
                    Source{"Webm", recipe("clip.webm", "libvpx", "libvorbis")},
                    Source{"Avi", recipe("clip.avi", "mjpeg", "pcm_s16le")},
                    Source{"OddSize", oddClip()}, Source{"VariableRate", variableRateClip()},
                    Source{"SixChannels", recipe("six.mp4", "libx264", "aac", {"-ac", "6"})}),
    [](const auto& test) { return std::string(test.param.title); });

// The first encoder that is installed does the work; every one of the list has to be up to it.
class MovieEncoderChoice : public testing::TestWithParam<const char*> {};

TEST_P(MovieEncoderChoice, CanTakeOver) {
  const fake::WithoutFactory without(GetParam());
  TempDir folder;
  for (const ClipRecipe& each : {oddClip(), variableRateClip()}) {
    const std::string in = movieClip(each);
    const Outcome outcome = runAndExpectNothingLeft(in, folder / "out.mp4");
    EXPECT_FALSE(outcome.error);
    expectGoodMovie(folder / "out.mp4", lengthSeconds(in));
  }
}
INSTANTIATE_TEST_SUITE_P(Without, MovieEncoderChoice, testing::Values("x264enc", "avenc_aac"),
                         [](const auto& test) { return std::string(test.param); });

TEST(MovieRunFailure, NoEncoderAtAllIsAnError) {
  const fake::WithoutFactory first("x264enc");
  const fake::WithoutFactory second("openh264enc");
  TempDir folder;
  const Outcome outcome =
      runAndExpectNothingLeft(movieClip(recipe("clip.mp4", "libx264", "aac")), folder / "out.mp4");
  EXPECT_EQ(outcome.result, LaunchDone);
  EXPECT_TRUE(outcome.error);
}

struct BadCase {
  const char* title;
  std::function<std::string(const TempDir&)> in;
  std::function<std::string(const TempDir&)> out;
};

void PrintTo(const BadCase& bad, std::ostream* out) {
  *out << bad.title;
}

class MovieRunEnds : public testing::TestWithParam<BadCase> {};

TEST_P(MovieRunEnds, WithAnErrorAndNothingLeft) {
  TempDir folder;
  const Outcome outcome = runAndExpectNothingLeft(GetParam().in(folder), GetParam().out(folder));
  EXPECT_EQ(outcome.result, LaunchDone);
  EXPECT_TRUE(outcome.error);
}

std::string goodClip(const TempDir&) {
  return movieClip(recipe("clip.mp4", "libx264", "aac"));
}
std::string outFile(const TempDir& folder) {
  return folder / "out.mp4";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MovieRunEnds,
    testing::Values(
        BadCase{"VideoOnly",
                [](const TempDir&) { return movieClip(recipe("v.mp4", "libx264", "")); }, outFile},
        BadCase{"AudioOnly", [](const TempDir&) { return movieClip(recipe("a.m4a", "", "aac")); },
                outFile},
        BadCase{"Mp3File",
                [](const TempDir&) {
                  return movieClip(recipe("a.mp3", "", "libmp3lame", {"-id3v2_version", "0"}));
                },
                outFile},
        BadCase{"Text",
                [](const TempDir& folder) {
                  return folder.write("in.mp4", "Once upon a time there was a movie.\n");
                },
                outFile},
        BadCase{"Empty", [](const TempDir& folder) { return folder.write("in.mp4", ""); }, outFile},
        BadCase{"CutShort",
                [](const TempDir& folder) {
                  return folder.write("in.mp4", readFile(goodClip(folder)).substr(0, 4000));
                },
                outFile},
        BadCase{"Missing", [](const TempDir& folder) { return folder / "in.mp4"; }, outFile},
        BadCase{"Folder", [](const TempDir& folder) { return folder.path(); }, outFile},
        BadCase{"NoOutputFolder", goodClip,
                [](const TempDir& folder) { return folder / "none/out.mp4"; }},
        BadCase{"OutputIsFolder", goodClip, [](const TempDir& folder) { return folder.path(); }},
        BadCase{"FullDisk", goodClip, [](const TempDir&) { return "/dev/full"; }}),
    [](const auto& test) { return std::string(test.param.title); });

}  // namespace
