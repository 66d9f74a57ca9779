// resizeMovie on real files: what comes out is what was asked for, and decodes to its end.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/e2e/movie_facts.h"
#include "tests/support/movie_media.h"

namespace {

constexpr char kDone[] = "{\"returnValue\":true}";

struct Case {
  const char* description;
  const char* out;
  const char* members;
  const char* streams;
  double seconds = 3;
};

void PrintTo(const Case& c, std::ostream* out) {
  *out << c.description;
}

class MoviesTest : public testing::TestWithParam<Case> {
 protected:
  std::string resize(const std::string& out, const std::string& members) {
    const auto movie = system.start("resizeMovie", movieRequest(clip, out, members));
    return system.client().wait(movie).reply;
  }

  InstalledSystem system;
  const std::string clip = movieClip({.seconds = 3, .size = "320x240"});
  const std::string folder = system.files() / "made";
};

TEST_P(MoviesTest, MadeAsAsked) {
  const Case& asked = GetParam();
  std::filesystem::create_directory(folder);
  const std::string out = folder + "/" + asked.out;
  EXPECT_EQ(resize(out, asked.members), kDone);
  const MovieFacts made = movieFacts(out);
  EXPECT_EQ(made.streams, asked.streams);
  EXPECT_NEAR(made.seconds, asked.seconds, 0.2);
  EXPECT_EQ(decodingErrors(out), "");
  // The reply comes before the pass logs go.
  EXPECT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  EXPECT_THAT(namesIn(folder), testing::ElementsAre(asked.out));
}

constexpr char kMpeg4[] = "mpeg4,video,320,240 aac,audio";
constexpr char kCopied[] = "h264,video,320,240 aac,audio";
constexpr char kQcif[] = "h263,video,176,144 aac,audio";
constexpr char kCifAmr[] = "h263,video,352,288 amr_nb,audio";

INSTANTIATE_TEST_SUITE_P(
    Requests, MoviesTest,
    testing::Values(
        Case{"mp4", "out.mp4", R"("videoBitrate":300000,"audioBitrate":64000)", kMpeg4},
        Case{"mp4InTwoPasses", "out.mp4",
             R"("videoBitrate":300000,"audioBitrate":64000,"passes":2)", kMpeg4},
        Case{"mp4Unlimited", "out.mp4", R"("audioSamplingRate":22050)", kMpeg4},
        Case{"mp4OfASize", "out.mp4", R"("picSize":"200x100","maxBitrate":400000)",
             "mpeg4,video,200,100 aac,audio"},
        Case{"mp4Part", "out.mp4", R"("startOffset":1,"clipLength":1.5,"maxBitrate":400000)",
             kMpeg4, 1.5},
        Case{"mp4PartInTwoPasses", "out.mp4",
             R"("startOffset":0.5,"clipLength":1,"maxBitrate":400000,"passes":2)", kMpeg4, 1},
        Case{"copiedWhole", "out.mp4", R"("videoCodec":"copy","audioCodec":"copy")", kCopied},
        Case{"copiedPictures", "out.mp4", R"("videoCodec":"copy","audioBitrate":32000)", kCopied},
        Case{"copiedSound", "out.mp4", R"("audioCodec":"copy","videoBitrate":300000)", kMpeg4},
        Case{"3gpAuto", "out.3gp", R"("picSize":"auto","maxBitrate":200000)", kQcif},
        Case{"3gpQcif", "out.3gp", R"("picSize":"qcif","maxBitrate":500000)", kQcif},
        Case{"3gpCifSpeech", "out.3gp",
             R"("picSize":"cif","audioCodec":"amrnb","maxBitrate":600000)", kCifAmr},
        Case{"3gpSpeechInTwoPasses", "out.3gp",
             R"("picSize":"auto","audioCodec":"amrnb","maxBitrate":600000,"passes":2)", kCifAmr}),
    [](const auto& instance) { return std::string(instance.param.description); });

TEST_F(MoviesTest, FitsTheSizeInTwoPasses) {
  const std::string out = system.files() / "out.mp4";
  const std::string members = R"("maxOutputSize":250000,"passes":2)";
  EXPECT_EQ(resize(out, members), kDone);
  EXPECT_LE(std::filesystem::file_size(out), 250000u);
  EXPECT_NEAR(movieFacts(out).seconds, 3, 0.2);
  EXPECT_EQ(decodingErrors(out), "");
}

TEST_F(MoviesTest, FitsTheSizeInOnePass) {
  const std::string out = system.files() / "new/folder/out.mp4";
  const std::string members = R"("maxOutputSize":250000,"picSize":"auto")";
  EXPECT_EQ(resize(out, members), kDone);
  EXPECT_LE(std::filesystem::file_size(out), 250000u);
  EXPECT_NEAR(movieFacts(out).seconds, 3, 0.2);
  EXPECT_EQ(decodingErrors(out), "");
}

}  // namespace
