#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/ffmpeg/files/progress_file.h"
#include "platform/ffmpeg/files/sha256.h"
#include "platform/ffmpeg/files/work_directory.h"
#include "tests/ffmpeg/program_run.h"

namespace {

using testing::IsEmpty;

class ScopedRuntimeDir {
 public:
  explicit ScopedRuntimeDir(const std::string& path) { setenv("XDG_RUNTIME_DIR", path.c_str(), 1); }
  ~ScopedRuntimeDir() { unsetenv("XDG_RUNTIME_DIR"); }
  ScopedRuntimeDir(const ScopedRuntimeDir&) = delete;
  ScopedRuntimeDir& operator=(const ScopedRuntimeDir&) = delete;
};

TEST(ProgressFileTest, DigestIsSha256) {
  EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(ProgressFileTest, OneObjectAtTheDigestOfThePath) {
  const TestFolder folder;
  const ScopedRuntimeDir runtime(folder.path());
  const std::string path = folder.file("tarn-transcode/" + sha256Hex("/d/out.mp4") + ".progress");
  {
    ProgressFile file("/d/out.mp4");
    EXPECT_EQ(file.path(), path);
    file.write({2, 2, 1200, 30208});
    EXPECT_EQ(readText(path), "{\"pass\":2,\"passes\":2,\"position\":1200,\"duration\":30208}\n");
    file.write({2, 2, 1300, 30208});
    EXPECT_EQ(readText(path), "{\"pass\":2,\"passes\":2,\"position\":1300,\"duration\":30208}\n");
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.file("tarn-transcode")));
  struct stat status {};
  ASSERT_EQ(stat(folder.file("tarn-transcode").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST(ProgressFileTest, RelativePathsCountFromTheCurrentFolder) {
  const TestFolder folder;
  const ScopedRuntimeDir runtime(folder.path());
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(ProgressFile("out.mp4").path(), ProgressFile(here + "/out.mp4").path());
}

TEST(ProgressFileTest, WithoutARuntimeFolderNothingHappens) {
  const ScopedRuntimeDir runtime("/nonexistent");
  ProgressFile file("/d/out.mp4");
  file.write({});
  EXPECT_EQ(file.path(), "");
}

TEST(WorkDirectoryTest, HiddenBesideTheTargetAndGoneAtItsEnd) {
  const TestFolder folder;
  std::string error;
  auto work = WorkDirectory::create(folder.file("out.mp4"), &error);
  ASSERT_TRUE(work) << error;
  writeText(work->file("output"), "x");
  ASSERT_EQ(folder.names().size(), 1U);
  EXPECT_TRUE(folder.names()[0].starts_with(".tarn-ffmpeg-"));
  work.reset();
  EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(WorkDirectoryTest, LongNamesStillHaveRoom) {
  const TestFolder folder;
  std::string error;
  EXPECT_TRUE(WorkDirectory::create(folder.file(std::string(251, 'n') + ".mp4"), &error)) << error;
}

TEST(WorkDirectoryTest, OnlyAFolderWithoutAHolderIsStale) {
  const TestFolder folder;
  std::string error;
  const auto held = WorkDirectory::create(folder.file("out.mp4"), &error);
  const auto other = WorkDirectory::create(folder.file("other.mp4"), &error);
  ASSERT_TRUE(held && other) << error;
  const std::string name = std::filesystem::path(held->path()).filename();
  const std::string stale = folder.file(name.substr(0, name.size() - 6) + "abcdef");
  std::filesystem::create_directory(stale);
  writeText(stale + "/output", "half of a clip");
  const auto next = WorkDirectory::create(folder.file("out.mp4"), &error);
  ASSERT_TRUE(next) << error;
  EXPECT_FALSE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::exists(held->path()));
  EXPECT_TRUE(std::filesystem::exists(other->path()));
}

TEST(WorkDirectoryTest, NoSuchFolder) {
  std::string error;
  EXPECT_FALSE(WorkDirectory::create("/nonexistent/out.mp4", &error));
  EXPECT_EQ(error, "cannot write in /nonexistent: No such file or directory");
}

}  // namespace
