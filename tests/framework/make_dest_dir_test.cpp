#include "src/framework/make_dest_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(MakeDestDir, NothingToDoWithoutASeparator) {
  EXPECT_EQ(0, makeDestDir("out.jpg"));
  EXPECT_FALSE(fs::exists("/out.jpg"));
}

TEST(MakeDestDir, MakesEveryMissingDirectoryAbove) {
  const TempDir dir;
  EXPECT_EQ(0, makeDestDir((dir / "a/b/x.jpg").c_str()));
  EXPECT_TRUE(fs::is_directory(dir / "a/b"));
  EXPECT_TRUE(fs::is_empty(dir / "a/b"));
  EXPECT_EQ(0, makeDestDir((dir / "a/b/x.jpg").c_str()));
}

TEST(MakeDestDir, LeavesTheModeToTheUmask) {
  const TempDir dir;
  const mode_t old = umask(027);
  EXPECT_EQ(0, makeDestDir((dir / "a/x.jpg").c_str()));
  umask(old);
  struct stat attributes;
  ASSERT_EQ(0, stat((dir / "a").c_str(), &attributes));
  EXPECT_EQ(0750u, attributes.st_mode & 07777);
}

TEST(MakeDestDir, RelativePathsStartAtTheRoot) {
  const TempDir dir;
  EXPECT_EQ(0, makeDestDir((dir / "a/x.jpg").c_str() + 1));
  EXPECT_TRUE(fs::is_directory(dir / "a"));
}

TEST(MakeDestDir, MakesADirectoryOfTheNameRightBelowTheRoot) {
  const std::string path = "/tarn-make-dest-dir-test.jpg";
  const int result = makeDestDir(path.c_str());
  if (geteuid() == 0) {
    EXPECT_EQ(0, result);
    EXPECT_TRUE(fs::is_directory(path));
    rmdir(path.c_str());
  } else {
    EXPECT_EQ(EACCES, result);
  }
}

TEST(MakeDestDir, MakesADirectoryOfTheNameBehindADoubledSeparator) {
  const TempDir dir;
  EXPECT_EQ(0, makeDestDir((dir / "a//b.jpg").c_str()));
  EXPECT_TRUE(fs::is_directory(dir / "a/b.jpg"));
}

TEST(MakeDestDir, AFileInTheWayCountsAsPresent) {
  const TempDir dir;
  dir.write("file", "x");
  EXPECT_EQ(0, makeDestDir((dir / "file/x.jpg").c_str()));
  EXPECT_EQ(ENOTDIR, makeDestDir((dir / "file/sub/x.jpg").c_str()));
}

TEST(MakeDestDir, ReportsWhatMkdirFailedOf) {
  EXPECT_EQ(ENOENT, makeDestDir("/proc/none/x.jpg"));
}

}  // namespace
