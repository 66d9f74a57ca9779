// com.tarn.Fit1 and movies, on a bus of its own, with the real worker and the system's ffmpeg.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

#include "tests/fit/fit_caller.h"
#include "tests/support/movie_media.h"
#include "tests/support/private_bus.h"
#include "tests/support/processes.h"
#include "tests/support/wait_until.h"

namespace {

namespace fs = std::filesystem;
using tarn::test::PrivateBus;
using testing::AllOf;
using testing::HasSubstr;

constexpr std::chrono::seconds kSoon(5);  // on a busy machine

// Noise in motion, with a tone: some 700 kB, and hard to make smaller.
std::string hardClip(const std::string& seconds = "2") {
  return movieClip(
      "hard.mkv", {"-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=" + seconds, "-f",
                   "lavfi", "-i", "sine=duration=" + seconds, "-vf", "noise=alls=30:allf=t", "-c:v",
                   "mpeg4", "-q:v", "3", "-c:a", "aac"});
}

// Takes far longer than a test has time to wait for.
std::string longClip() {
  return movieClip("long.mkv", {"-f", "lavfi", "-i", "testsrc2=size=640x480:rate=25:duration=20",
                                "-c:v", "mpeg4", "-q:v", "9"});
}

class FitMovieTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(dir / "service");
    for (const char* program : {FITD, FIT_WORKER, FIT_MOVIE}) {
      fs::copy_file(program, dir / "service/" + fs::path(program).filename().string());
    }
    fs::create_directory(dir / "cache");
    fs::create_directory(dir / "run");
    PrivateBus::Options options;
    options.services = {{kName, dir / "service/fitd" + " --idle-seconds=60"}};
    options.environment = {{"XDG_CACHE_HOME", dir / "cache"}, {"XDG_RUNTIME_DIR", dir / "run"}};
    bus = std::make_unique<PrivateBus>(options);
    caller = std::make_unique<FitCaller>(bus->address());
    caller->setMethod("FitMovie");
  }
  std::string out(const std::string& name = "out.mp4") { return dir / name; }
  std::string inspect(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const std::string facts = caller->call(kPath, kName, "Inspect", g_variant_new("(h)", 0), file);
    close(file);
    return facts;
  }
  // Nothing of a job is left: no process, no file.
  bool isClean() {
    return processesAbout(dir / "service/fit-movie").empty() &&
           processesAbout(dir / "cache").empty() &&
           (!fs::exists(dir / "cache/tarn-fit") || fs::is_empty(dir / "cache/tarn-fit"));
  }
  // Encodes, by the files that it has there.
  bool isEncoding() { return !processesAbout(dir / "cache/tarn-fit").empty(); }

  TempDir dir;
  std::unique_ptr<PrivateBus> bus;
  std::unique_ptr<FitCaller> caller;
};

TEST_F(FitMovieTest, AMovieFitsWholeAndFillsItsLimit) {
  const CallOutcome outcome = caller->fit(hardClip(), out(), 100000, "{'handle_token': <'mine'>}");
  ASSERT_TRUE(outcome.ok) << outcome.errorMessage;
  EXPECT_EQ(outcome.path, caller->pathOf("mine"));
  JobEnd end;
  ASSERT_TRUE(caller->awaitEnd(outcome.path, &end));
  ASSERT_TRUE(end.success) << end.message;
  EXPECT_EQ(fs::file_size(out()), end.numbers["bytes"]);
  EXPECT_LE(fs::file_size(out()), 100000u);
  EXPECT_GE(fs::file_size(out()), 85000u);
  EXPECT_NEAR(end.numbers["seconds"], 2, 0.1);
  EXPECT_GE(end.numbers["encodes"], 2);
  EXPECT_GT(end.numbers["ssim"], 0.1);
  EXPECT_LT(end.numbers["ssim"], 1);
  EXPECT_EQ(decodingErrors(out()), "");
  const std::string facts = inspect(out());
  EXPECT_THAT(facts, AllOf(HasSubstr("'kind': <'movie'>"), HasSubstr("'format': <'mp4'>"),
                           HasSubstr("'videoCodec': <'h264'>"), HasSubstr("'audioCodec': <'aac'>"),
                           HasSubstr("'seconds': <2.0")))
      << facts;
  const std::string bytes = readFile(out());
  EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
  const auto progress = caller->toldOf(outcome.path, "Progress");
  EXPECT_FALSE(progress.empty());
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  caller->sync();
  EXPECT_EQ(caller->endCount(), 1u);
  EXPECT_TRUE(waitUntil([&] { return isClean(); }));
}

TEST_F(FitMovieTest, TheSmallestSizeOfARefusalIsReached) {
  const CallOutcome outcome = caller->fit(hardClip(), out(), 2000);
  JobEnd end;
  ASSERT_TRUE(caller->awaitEnd(outcome.path, &end));
  EXPECT_EQ(end.error, std::string(kError) + "LimitTooSmall");
  EXPECT_EQ(fs::file_size(out()), 0u);
  const auto smallest = static_cast<uint64_t>(end.numbers["smallestBytes"]);
  ASSERT_GT(smallest, 2000u);
  const CallOutcome again = caller->fit(hardClip(), out(), smallest, "{'wait': <true>}");
  ASSERT_TRUE(again.ok) << again.errorMessage;
  EXPECT_LE(fs::file_size(out()), smallest);
  EXPECT_THAT(inspect(out()), HasSubstr("'seconds': <2."));
}

TEST_F(FitMovieTest, MoreBytesLookMoreLikeTheSource) {
  const std::string clip =
      movieClip("shapes.mkv", {"-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=2",
                               "-c:v", "mpeg4", "-q:v", "2"});
  double ssim = 0.3;
  for (const uint64_t bytes : {25000, 120000}) {
    const CallOutcome outcome = caller->fit(clip, out(), bytes);
    JobEnd end;
    ASSERT_TRUE(caller->awaitEnd(outcome.path, &end));
    ASSERT_TRUE(end.success) << end.message;
    EXPECT_GT(end.numbers["ssim"], ssim + 0.01);
    EXPECT_LT(end.numbers["ssim"], 1);
    ssim = end.numbers["ssim"];
  }
}

struct Wish {
  const char* name;
  const char* options;
  const char* facts;
};

class FitMovieWishTest : public FitMovieTest, public testing::WithParamInterface<Wish> {};

TEST_P(FitMovieWishTest, IsGranted) {
  const CallOutcome outcome = caller->fit(hardClip(), out(), 80000, GetParam().options);
  ASSERT_TRUE(outcome.ok) << outcome.errorMessage;
  EXPECT_LE(fs::file_size(out()), 80000u);
  EXPECT_THAT(inspect(out()), HasSubstr(GetParam().facts));
  EXPECT_EQ(decodingErrors(out()), "");
}

constexpr Wish kWishes[] = {
    {"mpeg4", "{'wait': <true>, 'format': <'mp4'>}", "'videoCodec': <'mpeg4'>"},
    {"h263", "{'wait': <true>, 'format': <'3gp'>}", "'videoCodec': <'h263'>"},
    {"amrSound", "{'wait': <true>, 'format': <'3gp'>}", "'audioCodec': <'amr_nb'>"},
    {"mostHeight", "{'wait': <true>, 'maxHeight': <uint32 90>}", "'height': <uint32 90>"},
};
INSTANTIATE_TEST_SUITE_P(Each, FitMovieWishTest, testing::ValuesIn(kWishes),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(FitMovieTest, AMovieThatFitsGoesOverAsItIs) {
  const std::string clip = movieClip({.name = "fine.mov", .seconds = 1});
  const CallOutcome outcome = caller->fit(clip, out(), 1000000);
  JobEnd end;
  ASSERT_TRUE(caller->awaitEnd(outcome.path, &end));
  ASSERT_TRUE(end.success) << end.message;
  EXPECT_EQ(end.numbers["encodes"], 0);
  EXPECT_EQ(end.numbers["ssim"], 1);
  EXPECT_EQ(decodingErrors(out()), "");
}

TEST_F(FitMovieTest, MemoryFilesDo) {
  const std::string clip = readFile(hardClip());
  const int in = memfd_create("in", MFD_CLOEXEC);
  const int result = memfd_create("out", MFD_CLOEXEC);
  ASSERT_EQ(write(in, clip.data(), clip.size()), static_cast<ssize_t>(clip.size()));
  const CallOutcome outcome = caller->fitDescriptors(in, result, 90000, "{'wait': <true>}");
  EXPECT_TRUE(outcome.ok) << outcome.errorMessage;
  char head[8] = "";
  EXPECT_EQ(read(result, head, 8), 8);
  EXPECT_EQ(std::string(head + 4, 4), "ftyp");
  close(in);
  close(result);
}

TEST_F(FitMovieTest, ACancelEndsTheEncoderAtOnce) {
  const CallOutcome outcome = caller->fit(longClip(), out(), 500000);
  ASSERT_TRUE(outcome.ok) << outcome.errorMessage;
  ASSERT_TRUE(waitUntil([&] { return isEncoding(); }));
  EXPECT_EQ(caller->call(outcome.path, kJob, "Cancel", nullptr), "()");
  JobEnd end;
  ASSERT_TRUE(caller->awaitEnd(outcome.path, &end));
  EXPECT_EQ(end.error, std::string(kError) + "Cancelled");
  EXPECT_EQ(fs::file_size(out()), 0u);
  EXPECT_TRUE(waitUntil([&] { return isClean(); }, kSoon));
}

TEST_F(FitMovieTest, ACallerThatLeavesTakesItsEncoderAlong) {
  {
    FitCaller leaving(bus->address());
    leaving.setMethod("FitMovie");
    EXPECT_TRUE(leaving.fit(longClip(), out(), 500000).ok);
    ASSERT_TRUE(waitUntil([&] { return isEncoding(); }));
  }
  EXPECT_TRUE(waitUntil([&] { return isClean(); }, kSoon));
  EXPECT_EQ(fs::file_size(out()), 0u);
}

TEST_F(FitMovieTest, AServiceThatIsKilledTakesItsEncoderAlong) {
  EXPECT_TRUE(caller->fit(longClip(), out(), 500000).ok);
  ASSERT_TRUE(waitUntil([&] { return isEncoding(); }));
  kill(processesAbout(dir / "service/fitd").at(0), SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return isClean(); }));
  EXPECT_EQ(fs::file_size(out()), 0u);
}

// What is no movie leads nowhere, whatever it names.
TEST_F(FitMovieTest, WhatIsNoMovieIsRefused) {
  writeFile(dir / "secret.mp4", readFile(hardClip()));
  const std::pair<std::string, std::string> files[] = {
      {"empty", ""},
      {"text", "no movie"},
      {"playlist", "#EXTM3U\n#EXTINF:2,\nfile://" + (dir / "secret.mp4") + "\n"},
      {"script", "ffconcat version 1.0\nfile " + (dir / "secret.mp4") + "\n"},
      {"photo", "\xFF\xD8\xFF\xE0"},
      {"broken", readFile(hardClip()).substr(0, 300)},
  };
  for (const auto& [name, content] : files) {
    writeFile(dir / name, content);
    writeFile(out(), "what was there");
    const CallOutcome outcome = caller->fit(dir / name, out(), 100000, "{'wait': <true>}");
    EXPECT_EQ(outcome.errorName, std::string(kError) + "NotAMovie") << name;
    EXPECT_EQ(outcome.errorMessage.find("/proc"), std::string::npos) << outcome.errorMessage;
    EXPECT_EQ(readFile(out()), "what was there") << name;
  }
  EXPECT_EQ(inspect(dir / "playlist"), std::string(kError) + "NotAPhoto");
  EXPECT_EQ(inspect(dir / "broken"), std::string(kError) + "NotAPhoto");
}

TEST_F(FitMovieTest, SoundAloneIsNoMovie) {
  const std::string clip = movieClip({.name = "tone.mp4", .seconds = 1, .videoCodec = ""});
  const CallOutcome outcome = caller->fit(clip, out(), 100000, "{'wait': <true>}");
  EXPECT_EQ(outcome.errorName, std::string(kError) + "NotAMovie");
}

TEST_F(FitMovieTest, AnOptionOfPhotosIsUnknown) {
  const CallOutcome outcome =
      caller->fit(hardClip(), out(), 100000, "{'qualityFloor': <uint32 9>}");
  EXPECT_EQ(outcome.errorName, std::string(kError) + "UnknownOption");
  EXPECT_THAT(outcome.errorMessage, HasSubstr("\"qualityFloor\""));
}

}  // namespace
