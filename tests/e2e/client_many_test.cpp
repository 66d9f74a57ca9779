// Many files at once: one line each, a summary, several in hand, and none of them harms another.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/e2e/installed_client.h"
#include "tests/support/jpeg_media.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class ClientManyTest : public testing::Test, protected InstalledClient {
 protected:
  void makePhotos(int count, const JpegRecipe& recipe = {.width = 400, .height = 300}) {
    const Bytes photo = makeJpeg(recipe);
    for (int i = 1; i <= count; ++i) {
      ASSERT_TRUE(writeBytes(dir / ("w/" + std::to_string(i) + ".jpg"), photo));
    }
  }
  static size_t linesIn(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  }
};

TEST_F(ClientManyTest, OneLineEachAndASummary) {
  makePhotos(5);
  for (const char* jobs : {"", "-j 1", "-j64", "--jobs 2"}) {
    const auto result =
        run(std::string("resize-image 1.jpg 2.jpg 3.jpg 4.jpg 5.jpg --out-dir small --size 5k ") +
            jobs);
    EXPECT_EQ(result.exitCode, 0) << errors();
    EXPECT_EQ(linesIn(result.out), 5u);
    for (int i = 1; i <= 5; ++i) {
      const std::string name = "w/small/" + std::to_string(i) + ".jpg";
      EXPECT_THAT(result.out, HasSubstr((dir / name) + ": "));
      EXPECT_LE(fs::file_size(dir / name), 5000u);
    }
    EXPECT_THAT(errors(), MatchesRegex("5 of 5 files made, [0-9.]+ kB became [0-9.]+ kB\n"));
    fs::remove_all(dir / "w/small");
  }
}

TEST_F(ClientManyTest, WhatFailsHarmsNoOther) {
  makePhotos(2);
  dir.write("w/text.jpg", "no picture");
  const auto result = run("resize-image 1.jpg none.jpg text.jpg 2.jpg --out-dir small --size 5k");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(linesIn(result.out), 2u);
  EXPECT_THAT(errors(), HasSubstr("tarn-transcode: cannot read " + (dir / "w/none.jpg") + ": No"));
  EXPECT_THAT(errors(), HasSubstr("tarn-transcode: cannot read " + (dir / "w/text.jpg") + " as a"));
  EXPECT_THAT(errors(), MatchesRegex("(tarn-transcode: .*\n)+2 of 4 files made, .*\n"));
  EXPECT_THAT(namesIn(dir / "w/small"), ElementsAre("1.jpg", "2.jpg"));
  const auto json = run("resize-image 1.jpg none.jpg --out-dir small --size 5k --json --quiet");
  EXPECT_EQ(json.exitCode, 1);
  EXPECT_EQ(linesIn(json.out), 2u);
  EXPECT_THAT(json.out, HasSubstr("/small/none.jpg\",\"returnValue\":false,"));
  EXPECT_THAT(run("resize-image 1.jpg 2.jpg --out-dir small --size 5k --quiet").out, IsEmpty());
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ClientManyTest, TooFewBytesForSomeIsAFailureThatNamesThem) {
  makePhotos(2);
  EXPECT_EQ(run("resize-image 1.jpg 2.jpg --out-dir small --size 300").exitCode, 1);
  EXPECT_THAT(errors(), HasSubstr("tarn-transcode: " + (dir / "w/2.jpg") +
                                  ": the picture cannot be made to fit 300 B\n"));
  EXPECT_FALSE(fs::exists(dir / "w/small"));
}

TEST_F(ClientManyTest, NoTwoFilesBecomeOne) {
  makePhotos(1);
  fs::create_directory(dir / "w/other");
  fs::copy_file(dir / "w/1.jpg", dir / "w/other/1.jpg");
  EXPECT_EQ(run("resize-image 1.jpg other/1.jpg --out-dir small --size 5k").exitCode, 1);
  EXPECT_EQ(errors(), "tarn-transcode: two files would become small/1.jpg\n");
  EXPECT_EQ(run("resize-movie a.mkv b/a.mp4 --out-dir small").exitCode, 1);
  EXPECT_EQ(errors(), "tarn-transcode: two files would become small/a.mp4\n");
  EXPECT_EQ(run("resize-image 1.jpg other/1.jpg x.jpg --size 5k").exitCode, 2);
  EXPECT_THAT(errors(), EndsWith("IN and OUT are needed, or FILES and --out-dir DIR\n"));
  EXPECT_EQ(run("resize-image 1.jpg --out-dir small --size 5k -j 0").exitCode, 2);
  EXPECT_THAT(errors(), EndsWith("tarn-transcode: --jobs: \"0\" is not a value: write 1 to 64\n"));
}

TEST_F(ClientManyTest, WhereThereIsNoServiceTheRestIsNotBegun) {
  makePhotos(9);
  const std::string words =
      "resize-image *.jpg --out-dir small --size 5k --json -j 1 2>" + (dir / "errors");
  const auto result = runCommand(command(words, "DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere"));
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(linesIn(result.out), 9u);
  EXPECT_THAT(result.out, HasSubstr("/small/9.jpg\",\"returnValue\":false,\"elapsed\":0.0,"
                                    "\"errorText\":\"it was not begun\"}"));
  EXPECT_EQ(linesIn(errors()), 1u);
}

#ifdef TARN_FIT
TEST_F(ClientManyTest, FitSharesAMessageAmongPhotos) {
  makePhotos(3, {.width = 800, .height = 600, .content = Content::Noise});
  makePhotos(1, {.width = 64, .height = 48});
  const auto small = fs::file_size(dir / "w/1.jpg");
  const auto result = run("fit 1.jpg 2.jpg 3.jpg --out-dir mail --total 60k");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out, HasSubstr((dir / "w/mail/1.jpg") + ": 64 x 48, "));
  EXPECT_EQ(fs::file_size(dir / "w/mail/1.jpg"), small);
  const auto rest = fs::file_size(dir / "w/mail/2.jpg") + fs::file_size(dir / "w/mail/3.jpg");
  EXPECT_LE(rest + small, 60000u);
  EXPECT_GT(rest, 50000u);
}
#endif

}  // namespace
