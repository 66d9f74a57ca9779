#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/ffmpeg/files/progress_file.h"
#include "platform/ffmpeg/files/sha256.h"
#include "platform/ffmpeg/files/shared_folder.h"
#include "platform/ffmpeg/files/work_directory.h"
#include "tests/support/scoped_variable.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::IsEmpty;

TEST(ProgressFileTest, DigestIsSha256) {
  EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(ProgressFileTest, OneObjectAtTheDigestOfThePath) {
  const TempDir folder;
  const ScopedVariable runtime("XDG_RUNTIME_DIR", folder.path());
  const std::string path = folder / ("tarn-transcode/" + sha256Hex("/d/out.mp4") + ".progress");
  {
    ProgressFile file("/d/out.mp4");
    EXPECT_EQ(file.path(), path);
    file.write({2, 2, 1200, 30208});
    EXPECT_EQ(readFile(path), "{\"pass\":2,\"passes\":2,\"position\":1200,\"duration\":30208}\n");
    file.write({2, 2, 1300, 30208});
    EXPECT_EQ(readFile(path), "{\"pass\":2,\"passes\":2,\"position\":1300,\"duration\":30208}\n");
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder / "tarn-transcode"));
  struct stat status {};
  ASSERT_EQ(stat((folder / "tarn-transcode").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST(ProgressFileTest, RelativePathsCountFromTheCurrentFolder) {
  const TempDir folder;
  const ScopedVariable runtime("XDG_RUNTIME_DIR", folder.path());
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(ProgressFile("out.mp4").path(), ProgressFile(here + "/out.mp4").path());
}

TEST(ProgressFileTest, WithoutARuntimeFolderNothingHappens) {
  const TempDir folder;
  const ScopedVariable runtime("XDG_RUNTIME_DIR", folder / "none");
  ProgressFile file("/d/out.mp4");
  file.write({});
  EXPECT_EQ(file.path(), "");
}

TEST(SharedFolderTest, IsTheRuntimeFolderOrOneOfThisUsersAlone) {
  const TempDir folder;
  const ScopedVariable runtime("XDG_RUNTIME_DIR", folder.path());
  EXPECT_EQ(sharedFolder(), folder / "tarn-transcode");

  const ScopedVariable none("XDG_RUNTIME_DIR", folder / "none");
  const std::string ours = folder / "tarn-transcode-" + std::to_string(geteuid());
  EXPECT_EQ(sharedFolder(folder.path()), ours);
  struct stat status {};
  ASSERT_EQ(stat(ours.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
  EXPECT_EQ(sharedFolder(folder.path()), ours);

  std::filesystem::permissions(ours, std::filesystem::perms::group_write,
                               std::filesystem::perm_options::add);
  EXPECT_EQ(sharedFolder(folder.path()), "");
  std::filesystem::remove(ours);
  std::filesystem::create_directory_symlink(folder / "tarn-transcode", ours);
  EXPECT_EQ(sharedFolder(folder.path()), "");
}

TEST(WorkDirectoryTest, HiddenBesideTheTargetAndGoneAtItsEnd) {
  const TempDir folder;
  std::string error;
  auto work = WorkDirectory::create(folder / "out.mp4", &error);
  ASSERT_TRUE(work) << error;
  writeFile(work->file("output"), "x");
  ASSERT_EQ(namesIn(folder.path()).size(), 1U);
  EXPECT_TRUE(namesIn(folder.path())[0].starts_with(".tarn-ffmpeg-"));
  work.reset();
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(WorkDirectoryTest, LongNamesStillHaveRoom) {
  const TempDir folder;
  std::string error;
  EXPECT_TRUE(WorkDirectory::create(folder / (std::string(251, 'n') + ".mp4"), &error)) << error;
}

TEST(WorkDirectoryTest, OnlyAFolderWithoutAHolderIsStale) {
  const TempDir folder;
  std::string error;
  const auto held = WorkDirectory::create(folder / "out.mp4", &error);
  const auto other = WorkDirectory::create(folder / "other.mp4", &error);
  ASSERT_TRUE(held && other) << error;
  const std::string name = std::filesystem::path(held->path()).filename();
  const std::string stale = folder / (name.substr(0, name.size() - 6) + "abcdef");
  std::filesystem::create_directory(stale);
  writeFile(stale + "/output", "half of a clip");
  const auto next = WorkDirectory::create(folder / "out.mp4", &error);
  ASSERT_TRUE(next) << error;
  EXPECT_FALSE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::exists(held->path()));
  EXPECT_TRUE(std::filesystem::exists(other->path()));
}

TEST(WorkDirectoryTest, NoSuchFolder) {
  const TempDir folder;
  std::string error;
  EXPECT_FALSE(WorkDirectory::create(folder / "none/out.mp4", &error));
  EXPECT_EQ(error, "cannot write in " + folder / "none" + ": No such file or directory");
}

}  // namespace
