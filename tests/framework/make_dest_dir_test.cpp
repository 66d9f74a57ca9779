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
  EXPECT_EQ(makeDestDir("out.jpg"), 0);
  EXPECT_FALSE(fs::exists("/out.jpg"));
}

TEST(MakeDestDir, MakesEveryMissingDirectoryAbove) {
  const TempDir dir;
  EXPECT_EQ(makeDestDir((dir / "a/b/x.jpg").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a/b"));
  EXPECT_TRUE(fs::is_empty(dir / "a/b"));
  EXPECT_EQ(makeDestDir((dir / "a/b/x.jpg").c_str()), 0);
}

TEST(MakeDestDir, LeavesTheModeToTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{027}}) {
    const TempDir dir;
    const mode_t old = umask(mask);
    EXPECT_EQ(makeDestDir((dir / "a/x.jpg").c_str()), 0);
    umask(old);
    struct stat attributes;
    ASSERT_EQ(stat((dir / "a").c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777, 0777u & ~mask);
  }
}

TEST(MakeDestDir, RelativePathsStartAtTheRoot) {
  const TempDir dir;
  EXPECT_EQ(makeDestDir((dir / "a/x.jpg").c_str() + 1), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a"));
}

TEST(MakeDestDir, MakesADirectoryOfTheNameRightBelowTheRoot) {
  const std::string path = "/tarn-test-" + std::to_string(getpid()) + ".jpg";
  const int result = makeDestDir(path.c_str());
  if (geteuid() == 0) {
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(fs::is_directory(path));
    rmdir(path.c_str());
  } else {
    EXPECT_EQ(result, EACCES);
  }
}

TEST(MakeDestDir, MakesADirectoryOfTheNameBehindADoubledSeparator) {
  const TempDir dir;
  EXPECT_EQ(makeDestDir((dir / "a//b.jpg").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(dir / "a/b.jpg"));
}

TEST(MakeDestDir, AFileInTheWayCountsAsPresent) {
  const TempDir dir;
  dir.write("file", "x");
  EXPECT_EQ(makeDestDir((dir / "file/x.jpg").c_str()), 0);
  EXPECT_EQ(makeDestDir((dir / "file/sub/x.jpg").c_str()), ENOTDIR);
}

TEST(MakeDestDir, ReportsWhatMkdirFailedOf) {
  EXPECT_EQ(makeDestDir("/proc/none/x.jpg"), ENOENT);
}

}  // namespace
