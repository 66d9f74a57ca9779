// Clips of a high dynamic range: mapped to what every screen shows, as far as the encoder can.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/fake_ffmpeg.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr int kLimit = 60000;

class HighRangeTest : public testing::Test {
 protected:
  // What came of the clip under the limit.
  MediaFacts made() {
    const std::string clip =
        movieClip({.name = "high.mp4",
                   .size = "320x180",
                   .more = {"-pix_fmt", "yuv420p10le", "-color_trc", "smpte2084",
                            "-color_primaries", "bt2020", "-colorspace", "bt2020nc"}});
    const RunResult result = runFfmpeg({"-i", clip, "-y", "-vcodec", "mpeg4", "-acodec", "libfaac",
                                        "-fs", std::to_string(kLimit), out});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_LE(std::filesystem::file_size(out), static_cast<size_t>(kLimit));
    EXPECT_EQ(decodingErrors(out), "");
    MediaFacts facts;
    std::string error;
    EXPECT_TRUE(probeMovie(out, kThoroughProbe, &facts, &error)) << error;
    EXPECT_NEAR(static_cast<double>(facts.durationUs), 2e6, 80000);
    return facts;
  }

  const TempDir folder;
  const std::string out = folder / "out.mp4";
};

TEST_F(HighRangeTest, IsMappedToTheUsualOne) {
  const MediaFacts facts = made();
  ASSERT_TRUE(facts.video);
  EXPECT_EQ(facts.video->colorTransfer, "bt709");
  EXPECT_NE(facts.video->colorMatrix, "bt2020nc");
}

// Also the sample that chooses the picture is made without it.
TEST_F(HighRangeTest, WithoutTheFilterTheWholeClipFitsAllTheSame) {
  const FakeFfmpeg lacking(R"(
    case "$*" in *zscale*)
      echo "[AVFilterGraph @ 0x1] No such filter: 'zscale'" >&2
      exit 1
    esac
    exec /usr/bin/ffmpeg "$@")");
  const MediaFacts facts = made();
  ASSERT_TRUE(facts.video);
  EXPECT_EQ(facts.video->colorTransfer, "smpte2084");
}

}  // namespace
