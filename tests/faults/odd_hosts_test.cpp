// Machines that lack what others have: a photo and a movie are made, or refused in words.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/movie_media.h"

namespace {

// Its prelude makes sure that the days do change.
constexpr char kJumpingClock[] = "today=$(date +%F) && export LD_PRELOAD=" JUMPING_CLOCK
                                 " && until [ \"$(date +%F)\" != \"$today\" ]; do sleep 0.01; done";

struct Host {
  const char* name;
  std::string inside;   // the program that the script runs in
  std::string prelude;  // of the script
};

class OddHostTest : public testing::TestWithParam<Host> {};

// Both by the client, from a system that the host starts; the exit codes of both.
TEST_P(OddHostTest, MakesAPhotoAndAMovie) {
  const TempDir dir;
  EXPECT_TRUE(writeBytes(dir / "in.jpg", makeJpeg({.width = 640, .height = 480})));
  std::filesystem::copy_file(movieClip({.seconds = 1}), dir / "in.mp4");
  for (const char* folder : {"home", "run", "o"}) {
    std::filesystem::create_directory(dir / folder);
  }
  const std::string words = dir.write("words", R"(
tarn-transcode resize-image --always in.jpg o/out.jpg --size 1M
echo photo $? >>codes
tarn-transcode resize-movie in.mp4 o/out.mp4 --video-bitrate 200k --passes 2
echo movie $? >>codes
)");
  const std::string script = dir.write(
      "script", "cd " + dir.path() + "\nexport PATH=" + installed("bin") +
                    ":$PATH XDG_DATA_DIRS=" + installed("share") + " HOME=" + (dir / "home") +
                    " XDG_RUNTIME_DIR=" + (dir / "run") + "\nunset XDG_CACHE_HOME\n" +
                    GetParam().prelude + " || exit 99\ndbus-run-session -- sh " + words + "\n");
  const int exitCode =
      runCommand(GetParam().inside + " sh " + script + " >" + (dir / "log") + " 2>&1").exitCode;
  if (exitCode != 0 && !GetParam().inside.empty()) {
    GTEST_SKIP() << "this machine allows no mount of our own";
  }
  EXPECT_EQ(readFile(dir / "codes"), "photo 0\nmovie 0\n") << readFile(dir / "log");
  EXPECT_THAT(namesIn(dir / "o"), testing::ElementsAre("out.jpg", "out.mp4"));
  EXPECT_EQ(decodingErrors(dir / "o/out.mp4"), "");
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, OddHostTest,
    testing::Values(Host{"NoHome", "", "unset HOME"},
                    Host{"NoRuntimeFolder", "", "unset XDG_RUNTIME_DIR"},
                    Host{"Neither", "", "unset HOME XDG_RUNTIME_DIR"},
                    Host{"ReadOnlyHome", "unshare --user --map-root-user --mount",
                         "mount --bind home home && mount -o remount,bind,ro home"},
#ifndef TARN_SANITIZED  // which want to be loaded before any other library
                    Host{"JumpingClock", "", kJumpingClock},
#endif
                    Host{"SixtyFourDescriptors", "", "ulimit -n 64"}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
