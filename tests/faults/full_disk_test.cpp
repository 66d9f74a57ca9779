// A disk that is full, or a limit that stands for it: a whole file or an empty one, and plain
// words.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"

namespace {

using testing::HasSubstr;

class FullDiskTest : public testing::Test {
 protected:
  FullDiskTest() {
    JpegRecipe recipe;
    recipe.width = 1600;
    recipe.height = 1200;
    recipe.content = Content::Noise;
    EXPECT_TRUE(writeBytes(dir / "in.jpg", makeJpeg(recipe)));
    std::filesystem::create_directory(dir / "small");
  }

  // A script that begins with `prelude` and asks a system of its own. False when the prelude fails.
  bool run(const std::string& inside, const std::string& prelude) {
    const std::string call = R"({"inFile":")" + (dir / "in.jpg") + R"(","outFile":")" +
                             (dir / "small/new.jpg") + R"(","size":9000000})";
    const std::string words = dir.write("words", R"(
encode() { tarn-transcode resize-image in.jpg small/out.jpg "$@"; echo $?; }
encode --size 9M --always >encoded 2>encoded-words
encode --size 9M >copied 2>copied-words
tarn-transcode call resizeImage ')" + call + R"(' >reply 2>&1
stat -c %s small/new.jpg >size
)");
    const std::string script =
        dir.write("script", "cd " + dir.path() + "\n" + prelude +
                                " || exit 99\n"
                                "echo old >small/out.jpg\n"
                                "export PATH=" +
                                installed("bin") + ":$PATH HOME=" + dir.path() +
                                " XDG_DATA_DIRS=" + installed("share") +
                                " XDG_RUNTIME_DIR=" + dir.path() + "\ndbus-run-session -- sh " +
                                words + "\nls -A small >names; cat small/out.jpg >>names\n");
    return runCommand(inside + " sh " + script + " 2>" + (dir / "log")).exitCode == 0;
  }

  void expectPlainWordsAndNothingCut() {
    for (const char* what : {"encoded", "copied"}) {
      EXPECT_EQ(readFile(dir / what), "1\n");
      EXPECT_EQ(readFile(dir / (what + std::string("-words"))),
                "tarn-transcode: there is no space left for " + (dir / "small/out.jpg") +
                    ", which is as it was: free some on its disk, or write to another one\n");
    }
    EXPECT_THAT(readFile(dir / "reply"), HasSubstr(R"("ImageSize":0})"));
    EXPECT_EQ(readFile(dir / "size"), "0\n");
    EXPECT_EQ(readFile(dir / "names"), "new.jpg\nout.jpg\nold\n");
  }

  const TempDir dir;
};

TEST_F(FullDiskTest, ATinyDisk) {
  if (!run("unshare --user --map-root-user --mount", "mount -t tmpfs -o size=200k tmpfs small")) {
    GTEST_SKIP() << "this machine allows no mount of our own";
  }
  expectPlainWordsAndNothingCut();
}

TEST_F(FullDiskTest, ALimitOfTheProcess) {
  ASSERT_TRUE(run("", "ulimit -f 400"));
  expectPlainWordsAndNothingCut();
}

}  // namespace
