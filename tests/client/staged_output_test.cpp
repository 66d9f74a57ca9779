#include <filesystem>

#include "client/files/staged_output.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

unsigned modeOf(const std::string& path) {
  struct stat attributes = {};
  EXPECT_EQ(stat(path.c_str(), &attributes), 0);
  return attributes.st_mode & 07777;
}

int filesIn(const std::string& folder) {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder)) {
    ++count;
  }
  return count;
}

class StagedOutputTest : public testing::Test {
 protected:
  const TempDir dir;
};

TEST_F(StagedOutputTest, AppearsWhenCommitted) {
  StagedOutput output(dir / "made/deep/out.jpg");
  ASSERT_EQ(output.errorText(), "");
  EXPECT_EQ(fs::path(output.temporaryPath()).parent_path(), dir / "made/deep");
  EXPECT_EQ(fs::path(output.temporaryPath()).extension(), ".jpg");
  EXPECT_FALSE(fs::exists(dir / "made/deep/out.jpg"));
  dir.write(fs::path(output.temporaryPath()).lexically_relative(dir.path()), "content");
  EXPECT_TRUE(output.commit());
  EXPECT_EQ(readFile(dir / "made/deep/out.jpg"), "content");
  EXPECT_EQ(filesIn(dir / "made/deep"), 1);
}

TEST_F(StagedOutputTest, LeavesNothingWhenNotCommitted) {
  dir.write("out.jpg", "old");
  { const StagedOutput output(dir / "out.jpg"); }
  EXPECT_EQ(readFile(dir / "out.jpg"), "old");
  EXPECT_EQ(filesIn(dir.path()), 1);
}

TEST_F(StagedOutputTest, GivesTheModeOfANewFileOrOfTheOldOne) {
  const mode_t mask = umask(027);
  EXPECT_EQ(modeOf(StagedOutput(dir / "new.jpg").temporaryPath().c_str()), 0640u);
  umask(mask);
  chmod(dir.write("old.jpg", "old").c_str(), 0604);
  const StagedOutput output(dir / "old.jpg");
  EXPECT_EQ(modeOf(output.temporaryPath()), 0604u);
}

TEST_F(StagedOutputTest, ReplacesTheFileBehindALink) {
  dir.write("real.jpg", "old");
  fs::create_symlink("real.jpg", dir / "link.jpg");
  StagedOutput output(dir / "link.jpg");
  EXPECT_EQ(output.targetPath(), dir / "real.jpg");
  EXPECT_TRUE(output.commit());
  EXPECT_TRUE(fs::is_symlink(dir / "link.jpg"));
  EXPECT_EQ(readFile(dir / "real.jpg"), "");
}

TEST_F(StagedOutputTest, SaysWhyItCannotWrite) {
  for (const std::string& target :
       {dir.path(), dir.path() + "/", std::string("/proc/none/x.jpg"), dir / "\xe9.jpg"}) {
    const StagedOutput output(target);
    EXPECT_EQ(output.temporaryPath(), "") << target;
    EXPECT_NE(output.errorText(), "") << target;
  }
}

TEST_F(StagedOutputTest, FailedCommitLeavesTheTarget) {
  StagedOutput output(dir / "out.jpg");
  fs::create_directories(dir / "out.jpg/in the way");
  EXPECT_FALSE(output.commit());
  EXPECT_NE(output.errorText(), "");
}

}  // namespace
