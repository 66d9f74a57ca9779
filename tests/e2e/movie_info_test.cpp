// getMovieInfo on real files of every kind that phones and cameras make.
#include <gmock/gmock.h>

#include <filesystem>

#include "dsjson/dsjson.h"
#include "tests/e2e/movie_facts.h"
#include "tests/support/movie_media.h"

namespace {

struct Info {
  bool succeeded = false;
  int32_t fileSize = 0;
  int32_t bitrate = 0;
  double clipLength = 0;
};

Info parseInfo(const std::string& reply) {
  Info info;
  dsjson::JDomParser parser(nullptr);
  EXPECT_TRUE(parser.parse(reply, dsjson::JSchemaFragment("{}"), nullptr)) << reply;
  const dsjson::JValue value = parser.getDom();
  value["returnValue"].asBool(info.succeeded);
  value["fileSize"].asNumber(info.fileSize);
  value["bitrate"].asNumber(info.bitrate);
  value["clipLength"].asNumber(info.clipLength);
  return info;
}

class MovieInfoTest : public testing::Test {
 protected:
  void expectInfo(const std::string& clip) {
    SCOPED_TRACE(clip);
    const auto result = system.call("getMovieInfo", infoRequest(clip));
    ASSERT_TRUE(result.ok) << result.errorName << ": " << result.errorMessage;
    EXPECT_THAT(result.reply, testing::StartsWith(R"({"returnValue":true,"fileSize":)"));
    const Info info = parseInfo(result.reply);
    EXPECT_EQ(info.fileSize, static_cast<int64_t>(std::filesystem::file_size(clip)));
    EXPECT_NEAR(movieFacts(clip).seconds, info.clipLength, 0.05);
    EXPECT_NEAR(info.fileSize * 8.0 / info.clipLength, info.bitrate, 1.001);
  }

  InstalledSystem system;
};

TEST_F(MovieInfoTest, EveryContainerAndCodec) {
  const ClipRecipe recipes[] = {
      {},
      {.name = "a.mov", .audioCodec = "pcm_s16le"},
      {.name = "a.3gp",
       .size = "176x144",
       .videoCodec = "h263",
       .audioCodec = "libopencore_amrnb",
       .more = {"-ar", "8000", "-ac", "1"}},
      {.name = "a.avi", .videoCodec = "mpeg4", .audioCodec = "libmp3lame"},
      {.name = "a.avi",
       .videoCodec = "mjpeg",
       .audioCodec = "pcm_s16le",
       .more = {"-pix_fmt", "yuvj420p"}},
      {.name = "a.mkv", .more = {"-ac", "6"}},
      {.name = "a.webm", .videoCodec = "libvpx", .audioCodec = "libvorbis"},
      {.name = "a.webm",
       .videoCodec = "libvpx-vp9",
       .audioCodec = "libopus",
       .more = {"-deadline", "realtime", "-cpu-used", "8"}},
  };
  for (const ClipRecipe& recipe : recipes) {
    expectInfo(movieClip(recipe));
  }
}

TEST_F(MovieInfoTest, EveryRateAndShape) {
  expectInfo(movieClip({.rate = "24000/1001", .videoCodec = "mpeg4"}));
  expectInfo(movieClip({.rate = "30000/1001"}));
  expectInfo(movieClip({.audioCodec = ""}));
  expectInfo(movieClip({.more = {"-pix_fmt", "yuvj420p", "-color_range", "pc"}}));
  expectInfo(movieClip("rotated.mp4", {"-i", movieClip({.size = "320x180"}), "-c", "copy",
                                       "-metadata:s:v:0", "rotate=90"}));
  expectInfo(movieClip("vfr.mp4",
                       {"-f", "lavfi", "-i", "testsrc2=size=160x120:rate=30:duration=3", "-vf",
                        "select='lt(t,1)+not(mod(n,7))'", "-fps_mode", "vfr", "-c:v", "libx264"}));
}

TEST_F(MovieInfoTest, WhateverTheMetadataSay) {
  const std::string plain = movieClip(ClipRecipe{});
  const char* const titles[] = {
      "costs $5",   R"("quoted" 'twice')",
      "two\nlines", "caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac",
      "caf\xe9",    "Duration: 00:00:09.00, start: 0, Stream #0.0: Video: x 1 kb/s, 9 fps, 9 tbr"};
  for (const char* title : titles) {
    const std::string tag = std::string("title=") + title;
    expectInfo(movieClip("tagged.mp4", {"-i", plain, "-c", "copy", "-metadata", tag}));
    expectInfo(movieClip("tagged.mkv", {"-i", plain, "-c", "copy", "-metadata", tag, "-metadata",
                                        "comment=" + std::string(title) + "$"}));
  }
}

TEST_F(MovieInfoTest, NamesWithSpacesAndOtherAlphabets) {
  const TempDir& dir = system.files();
  for (const char* name : {"a b.mp4", "-i.mp4", "50%d:x.mp4", "\xc3\xa9.mp4", "$HOME 'q'.mp4"}) {
    std::filesystem::copy_file(movieClip(ClipRecipe{}), dir / name);
    const auto result = system.call("getMovieInfo", infoRequest(dir / name));
    EXPECT_THAT(result.reply, testing::StartsWith(R"({"returnValue":true,)")) << name;
  }
}

}  // namespace
