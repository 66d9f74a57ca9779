// What the client tells a program: with --json one object a file, and nothing else, on stdout.
#include <gmock/gmock.h>

#include "tests/e2e/installed_client.h"
#include "tests/support/jpeg_media.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class ClientJsonTest : public testing::Test, protected InstalledClient {
 protected:
  ClientJsonTest() {
    EXPECT_TRUE(writeBytes(dir / "w/in.jpg", makeJpeg({.width = 1000, .height = 750})));
  }

  // One object of a file: its beginning, what is in the middle, and its end.
  std::string line(const std::string& in, const std::string& out, const std::string& rest) {
    return "\\{\"input\":\"" + (dir / "w/") + in + "\",\"output\":\"" + (dir / "w/") + out + "\"," +
           rest + "\\}\n";
  }
};

TEST_F(ClientJsonTest, TellsOfAPhoto) {
  const std::string made =
      "\"returnValue\":true,\"inputBytes\":[0-9]+,\"outputBytes\":[0-9]+,\"width\":[0-9]+,"
      "\"height\":[0-9]+,\"elapsed\":[0-9.]+";
  for (const char* size : {"10k", "10M"}) {
    const auto result = run(std::string("resize-image --json in.jpg out.jpg --size ") + size);
    EXPECT_EQ(result.exitCode, 0) << errors();
    EXPECT_THAT(result.out, MatchesRegex(line("in.jpg", "out.jpg", made)));
    EXPECT_THAT(errors(), IsEmpty());
  }
  EXPECT_THAT(run("resize-image --json in.jpg out.jpg --size 10M").out,
              HasSubstr("\"width\":1000,\"height\":750,"));
}

// Also what the client itself refuses.
TEST_F(ClientJsonTest, TellsOfEveryRefusal) {
  dir.write("w/text.jpg", "no picture");
  const std::tuple<const char*, const char*, const char*, int> cases[] = {
      {"in.jpg", "out.jpg", "the picture cannot be made to fit 400 B", 4},
      {"in.jpg", "in.jpg", "input and output are the same file", 1},
      {"none.jpg", "out.jpg", "cannot read .*/none.jpg: No such file or directory", 1},
      {"text.jpg", "out.jpg", "cannot read .*/text.jpg as a JPEG: Not a JPEG file: .*", 1},
      {"in.jpg", "text.jpg/out.jpg", "cannot write .*", 1},
  };
  for (const auto& [in, out, reason, exitCode] : cases) {
    const std::string words = std::string(in) + " " + out + " --size 400 --json --quiet";
    const auto result = run("resize-image " + words);
    EXPECT_EQ(result.exitCode, exitCode) << words;
    EXPECT_THAT(result.out, MatchesRegex(line(in, out,
                                              "\"returnValue\":false,.*\"elapsed\":[0-9.]+,"
                                              "\"errorText\":\"" +
                                                  std::string(reason) + "\"")));
    EXPECT_THAT(errors(),
                MatchesRegex("tarn-transcode: (.*/in.jpg: )?" + std::string(reason) + "\n"));
  }
  const std::string noBus = "DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere";
  const auto result =
      runCommand(command("resize-image in.jpg out.jpg --size 400 --json 2>/dev/null", noBus));
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, MatchesRegex(line("in.jpg", "out.jpg", ".*no message bus.*")));
}

TEST_F(ClientJsonTest, TellsWhatAPhotoIs) {
  const Bytes photo = makeJpeg({.width = 1000, .height = 750, .exif = ExifRecipe{}, .xmp = "<x/>"});
  EXPECT_TRUE(writeBytes(dir / "w/in.jpg", photo));
  EXPECT_THAT(run("info --json in.jpg").out,
              MatchesRegex("\\{\"input\":\".*/w/in.jpg\",\"returnValue\":true,\"kind\":\"photo\","
                           "\"inputBytes\":" +
                           std::to_string(photo.size()) +
                           ",\"width\":1000,\"height\":750,\"metadataBytes\":[0-9]+,"
                           "\"camera\":\"Tarn Test camera\",\"elapsed\":[0-9.]+\\}\n"));
  EXPECT_THAT(run("info in.jpg").out,
              MatchesRegex(".*/w/in.jpg: JPEG, 1000 x 750, [0-9]+ kB, [0-9]+ B of it metadata, "
                           "Tarn Test camera\n"));
  EXPECT_EQ(system.daemonPid(), 0);
  dir.write("w/in.jpg", "\xff\xd8 and no more");
  EXPECT_EQ(run("info in.jpg").exitCode, 1);
  EXPECT_THAT(errors(),
              StartsWith("tarn-transcode: cannot read " + (dir / "w/in.jpg") + " as a JPEG"));
}

// By their first bytes, not by their names, and without the movies' service.
TEST_F(ClientJsonTest, TellsWhatPhotosOfOtherKindsAre) {
  for (const char* kind : {"png", "gif", "webp", "tiff"}) {
    const std::string convert = "cd '" + (dir / "w") + "' && convert in.jpg " + kind + ":photo";
    ASSERT_EQ(runCommand(convert).exitCode, 0) << kind;
    EXPECT_THAT(run("info --json photo").out,
                MatchesRegex("\\{\"input\":\".*/w/photo\",\"returnValue\":true,\"kind\":\"photo\","
                             "\"inputBytes\":[0-9]+,\"width\":1000,\"height\":750,"
                             "\"metadataBytes\":[0-9]+,\"elapsed\":[0-9.]+\\}\n"))
        << kind;
  }
  EXPECT_THAT(
      run("info photo").out,
      MatchesRegex(".*/w/photo: TIFF, 1000 x 750, [0-9.]+ [kM]?B, [0-9]+ B of it metadata\n"));
  EXPECT_EQ(run("fit in.jpg in.avif --size 20k").exitCode, 0) << errors();
  EXPECT_THAT(run("info in.avif").out, HasSubstr("in.avif: AVIF, "));
  EXPECT_EQ(system.daemonPid(), 0);
}

TEST_F(ClientJsonTest, WhatOnlyBeginsAsAPhotoSaysSo) {
  dir.write("w/in.png", "\x89PNG\r\n\x1a\n and no more");
  EXPECT_EQ(run("info in.png").exitCode, 1);
  EXPECT_THAT(errors(), StartsWith("tarn-transcode: cannot read " + (dir / "w/in.png") + ": "));
  EXPECT_EQ(system.daemonPid(), 0);
}

TEST_F(ClientJsonTest, AUsageErrorIsOnStandardErrorOnly) {
  EXPECT_THAT(run("resize-image --json in.jpg").out, IsEmpty());
  EXPECT_THAT(errors(), StartsWith("usage: "));
}

#ifdef TARN_FIT
TEST_F(ClientJsonTest, TellsOfAFit) {
  const auto result = run("fit --json in.jpg out.jpg --size 10k");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out,
              MatchesRegex(line("in.jpg", "out.jpg",
                                "\"returnValue\":true,\"inputBytes\":[0-9]+,\"outputBytes\":[0-9]+,"
                                "\"width\":[0-9]+,\"height\":[0-9]+,\"ssim\":0.[0-9]+,"
                                "\"elapsed\":[0-9.]+")));
  EXPECT_EQ(run("fit --json in.jpg out.jpg --size 100").exitCode, 4);
  EXPECT_THAT(errors(), StartsWith("tarn-transcode: " + (dir / "w/in.jpg") + ": The photo "));
}
#endif

TEST_F(ClientJsonTest, ColoursAreForTerminalsThatMayHaveThem) {
  const char* words = "resize-image none.jpg out.jpg --size 1k";
  const std::string red = "\033[31mtarn-transcode:\033[0m ";
  EXPECT_THAT(runOnTerminal(words, "TERM=xterm").out, StartsWith(red + "cannot read"));
  EXPECT_THAT(runOnTerminal(words, "TERM=xterm NO_COLOR=").out, StartsWith(red));
  for (const char* environment : {"TERM=xterm NO_COLOR=1", "TERM=dumb", "-u TERM"}) {
    const std::string environ = environment[0] == '-' ? "env -u TERM" : environment;
    EXPECT_THAT(runOnTerminal(words, environ).out, StartsWith("tarn-transcode: cannot read"));
  }
  EXPECT_EQ(run(words).exitCode, 1);
  EXPECT_THAT(errors(), Not(HasSubstr("\033")));
}

}  // namespace
