#include "client/files/staged_output.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "platform/held/held_file.h"
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

TEST_F(StagedOutputTest, MakesTheFileThatALinkLeadsTo) {
  fs::create_directory(dir / "card");
  fs::create_symlink("card/new.jpg", dir / "second.jpg");
  fs::create_symlink(dir / "second.jpg", dir / "first.jpg");
  StagedOutput output(dir / "first.jpg");
  EXPECT_EQ(output.targetPath(), dir / "card/new.jpg");
  EXPECT_TRUE(output.commit());
  EXPECT_TRUE(fs::is_symlink(dir / "first.jpg"));
  EXPECT_TRUE(fs::is_symlink(dir / "second.jpg"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(dir / "card/new.jpg")));
}

TEST_F(StagedOutputTest, RefusesWhatIsNoFile) {
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  fs::create_symlink("/dev/null", dir / "link");
  fs::create_symlink("loop", dir / "loop");
  for (const std::string& target :
       {dir / "fifo", dir / "link", dir / "loop", std::string("/dev/null")}) {
    const StagedOutput output(target);
    EXPECT_EQ(output.temporaryPath(), "") << target;
    EXPECT_THAT(output.errorText(), testing::StartsWith("cannot write " + target + ": "));
  }
  EXPECT_FALSE(fs::is_regular_file("/dev/null"));
  EXPECT_EQ(filesIn(dir.path()), 3);
}

TEST_F(StagedOutputTest, LeavesNoFoldersWhenNotCommitted) {
  fs::create_directory(dir / "old");
  { const StagedOutput output(dir / "old/made/deep/out.jpg"); }
  { const StagedOutput output(dir / ("old/made/" + std::string(300, 'n') + "/out.jpg")); }
  EXPECT_TRUE(fs::is_empty(dir / "old"));
}

TEST_F(StagedOutputTest, LongNamesHaveRoom) {
  StagedOutput output(dir / (std::string(251, 'n') + ".jpg"));
  EXPECT_TRUE(output.commit()) << output.errorText();
}

TEST_F(StagedOutputTest, HoldsTheTemporaryUntilItIsLetGo) {
  StagedOutput output(dir / "out.jpg");
  EXPECT_TRUE(hasHeldName(output.temporaryPath()));
  EXPECT_FALSE(isWithdrawn(output.temporaryPath()));
  output.letGo();
  EXPECT_TRUE(isWithdrawn(output.temporaryPath()));
}

TEST_F(StagedOutputTest, RemovesWhatWasAbandonedAndNothingElse) {
  const auto hoursOld = [this](const std::string& name) {
    const std::string path = dir.write(name, "x");
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(2));
    return path;
  };
  const std::string abandoned = hoursOld(kHeldPrefix + std::string("1.jpg"));
  const std::string foreign = hoursOld("1.jpg");
  const std::string fresh = dir.write(kHeldPrefix + std::string("2.jpg"), "x");
  const StagedOutput other(dir / "other.jpg");
  fs::last_write_time(other.temporaryPath(),
                      fs::file_time_type::clock::now() - std::chrono::hours(2));
  const StagedOutput output(dir / "out.jpg");
  EXPECT_FALSE(fs::exists(abandoned));
  for (const std::string& kept : {foreign, fresh, other.temporaryPath()}) {
    EXPECT_TRUE(fs::exists(kept)) << kept;
  }
}

TEST_F(StagedOutputTest, KnowsWhatRoomThereIs) {
  const StagedOutput output(dir / "out.jpg");
  EXPECT_TRUE(output.hasRoomFor(100'000));
  EXPECT_FALSE(output.hasRoomFor(uintmax_t{1} << 60));
  rlimit whole = {};
  getrlimit(RLIMIT_FSIZE, &whole);
  const rlimit little = {10'000, whole.rlim_max};
  setrlimit(RLIMIT_FSIZE, &little);
  EXPECT_FALSE(output.hasRoomFor(100'000));
  setrlimit(RLIMIT_FSIZE, &whole);
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

TEST_F(StagedOutputTest, ReplacesNothingThatAppearedMeanwhileWhenToldSo) {
  const std::string target = dir / "out.jpg";
  StagedOutput output(target, true);
  ASSERT_NE(output.temporaryPath(), "");
  writeFile(target, "another's");
  EXPECT_FALSE(output.commit());
  EXPECT_EQ(output.errorText(), "cannot write " + target + ": File exists");
  EXPECT_EQ(readFile(target), "another's");
}

}  // namespace
