#include "platform/ffmpeg/files/work_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "platform/ffmpeg/files/paths.h"
#include "platform/ffmpeg/files/sha256.h"

namespace {

namespace fs = std::filesystem;

constexpr int kAttempts = 5;

std::string prefixFor(const std::string& target) {
  return ".tarn-ffmpeg-" + sha256Hex(target).substr(0, 16) + "-";
}

// The open folder, locked; -1 when another process holds it.
int lockFolder(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
  if (fd >= 0) close(fd);
  return -1;
}

std::string randomName() {
  uint64_t number = 0;
  if (getrandom(&number, sizeof(number), GRND_NONBLOCK) != sizeof(number)) {
    number = static_cast<uint64_t>(getpid());
  }
  return sha256Hex(std::to_string(number)).substr(0, 12);
}

void removeTree(const std::string& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

void removeStale(const std::string& folder, const std::string& prefix) {
  std::error_code failure;
  fs::directory_iterator entry(folder, failure);
  for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) {
    if (!entry->path().filename().string().starts_with(prefix)) continue;
    const int lock = lockFolder(entry->path());
    if (lock < 0) continue;
    removeTree(entry->path());
    close(lock);
  }
}

// Another run may take a folder for stale in the moment between its making and its locking.
bool isStillThere(const std::string& path, int fd) {
  struct stat byName {};
  struct stat byFd {};
  return stat(path.c_str(), &byName) == 0 && fstat(fd, &byFd) == 0 && byName.st_ino == byFd.st_ino;
}

std::vector<std::string> withFolder(const std::string& folder, std::vector<std::string> paths) {
  paths.push_back(folder);
  return paths;
}

}  // namespace

// The janitor stands ready before there is anything to remove.
WorkDirectory::WorkDirectory(std::string path, const std::vector<std::string>& companions)
    : folder(std::move(path)), janitor(withFolder(folder, companions)) {}

std::unique_ptr<WorkDirectory> WorkDirectory::create(const std::string& target, std::string* error,
                                                     const std::vector<std::string>& companions) {
  const std::string beside = folderOf(target);
  const std::string prefix = prefixFor(target);
  removeStale(beside, prefix);
  std::unique_ptr<WorkDirectory> work(
      new WorkDirectory(beside + "/" + prefix + randomName(), companions));
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (mkdir(work->path().c_str(), 0700) != 0) break;
    work->lockFd = lockFolder(work->path());
    if (work->lockFd >= 0 && isStillThere(work->path(), work->lockFd)) return work;
    if (work->lockFd >= 0) close(work->lockFd);
    work->lockFd = -1;
  }
  *error = "cannot write in " + beside + ": " + strerror(errno);
  return nullptr;
}

WorkDirectory::~WorkDirectory() {
  if (lockFd < 0) return;
  removeTree(folder);
  close(lockFd);
}
