// Where the client's outputs go: streams, files that are left alone, and none at all.
#include <gmock/gmock.h>

#include "tests/e2e/installed_client.h"
#include "tests/support/jpeg_media.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class ClientOutputsTest : public testing::Test, protected InstalledClient {
 protected:
  ClientOutputsTest() {
    EXPECT_TRUE(writeBytes(dir / "w/in.jpg", makeJpeg({.width = 1000, .height = 750})));
    fs::create_directory(dir / "tmp");
  }
  CommandOutput runPiped(const std::string& words) {
    return runCommand(command(words, "TMPDIR=" + (dir / "tmp")) + " 2>" + (dir / "errors"));
  }
};

TEST_F(ClientOutputsTest, StandardInputAndOutputAreFilesToo) {
  for (const char* words : {"- - <in.jpg >out.jpg", "in.jpg - | cat >out.jpg",
                            "- out.jpg <in.jpg >words", "- - --quiet <in.jpg | cat >out.jpg"}) {
    fs::remove(dir / "w/out.jpg");
    EXPECT_EQ(runPiped(std::string("resize-image --size 10k ") + words).exitCode, 0) << errors();
    EXPECT_LE(fs::file_size(dir / "w/out.jpg"), 10000u) << words;
    EXPECT_FALSE(decodePixels(readBytes(dir / "w/out.jpg")).empty()) << words;
    EXPECT_THAT(namesIn(dir / "tmp"), IsEmpty());
  }
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_EQ(runPiped("resize-image --size 10k in.jpg - >out.jpg").exitCode, 0);
  EXPECT_THAT(errors(), MatchesRegex("[0-9]+ x [0-9]+, [0-9.]+ kB\n"));
  const auto json = runPiped("resize-image --size 10k - out.jpg --json <in.jpg");
  EXPECT_THAT(json.out, MatchesRegex("\\{\"input\":\"-\",\"output\":\".*out.jpg\",.*\\}\n"));
}

TEST_F(ClientOutputsTest, WhatIsWrongWithAStreamIsSaidOfIt) {
  EXPECT_EQ(runPiped("resize-image --size 10k - out.jpg </dev/null").exitCode, 1);
  EXPECT_EQ(errors(), "tarn-transcode: cannot read standard input: it is empty\n");
  EXPECT_EQ(runPiped("resize-image --size 300 - - <in.jpg").exitCode, 4);
  EXPECT_EQ(errors(), "tarn-transcode: standard input: the picture cannot be made to fit 300 B\n");
  EXPECT_EQ(runPiped("resize-image --size 10k in.jpg - >/dev/full").exitCode, 1);
  EXPECT_EQ(errors(), "tarn-transcode: cannot write standard output: No space left on device\n");
  EXPECT_EQ(runPiped("resize-image --size 10k in.jpg - --json").exitCode, 2);
  EXPECT_THAT(errors(), HasSubstr("OUT and --json both want standard output\n"));
  EXPECT_EQ(runPiped("resize-image --size 10k in.jpg - --out-dir x").exitCode, 2);
  EXPECT_THAT(errors(), HasSubstr("- is no file of a folder\n"));
  EXPECT_THAT(runOnTerminal("resize-image --size 10k in.jpg -", "TERM=dumb").out,
              HasSubstr("standard output is a terminal: send it to a file or a program"));
  EXPECT_THAT(namesIn(dir / "tmp"), IsEmpty());
}

TEST_F(ClientOutputsTest, ADryRunTellsAndMakesNothing) {
  const std::string out = (dir / "w/a/out.jpg") + ": ";
  const auto shrunk = run("resize-image in.jpg a/out.jpg --size 10k --dry-run");
  EXPECT_EQ(shrunk.exitCode, 0) << errors();
  EXPECT_THAT(shrunk.out, MatchesRegex(out + "would have at most 10 kB instead of [0-9]+ kB\n"));
  EXPECT_THAT(run("resize-image in.jpg a/out.jpg --size 1M --dry-run").out,
              MatchesRegex(out + "would be a copy of [0-9]+ kB\n"));
  EXPECT_THAT(run("resize-movie in.jpg a/out.mp4 --dry-run").out,
              HasSubstr("would be encoded anew, from "));
  EXPECT_EQ(run("resize-image none.jpg a/out.jpg --size 1M --dry-run").exitCode, 1);
  EXPECT_EQ(run("resize-image in.jpg none.jpg --out-dir a --size 1M --dry-run").exitCode, 1);
  EXPECT_THAT(errors(), HasSubstr("1 of 2 files would be made\n"));
  EXPECT_THAT(namesIn(dir / "w"), ElementsAre("in.jpg"));
  EXPECT_EQ(system.daemonPid(), 0);
}

TEST_F(ClientOutputsTest, NothingThatIsThereIsReplacedWhenToldSo) {
  dir.write("w/out.jpg", "old");
  const auto result = run("resize-image in.jpg out.jpg --size 10k --no-clobber");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_EQ(result.out, (dir / "w/out.jpg") + ": left alone, it was there\n");
  EXPECT_EQ(readFile(dir / "w/out.jpg"), "old");
  fs::remove(dir / "w/out.jpg");
  EXPECT_EQ(run("resize-image in.jpg out.jpg --size 10k --no-clobber").exitCode, 0) << errors();
  EXPECT_GT(fs::file_size(dir / "w/out.jpg"), 1000u);
}

}  // namespace
