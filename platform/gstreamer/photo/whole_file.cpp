#include "platform/gstreamer/photo/whole_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr size_t kFirstBytes = 2;  // a JPEG's SOI

// To reach for more would end the process.
bool isAllowed(size_t size) {
  rlimit limit = {};
  errno = EFBIG;
  return getrlimit(RLIMIT_FSIZE, &limit) != 0 || size <= limit.rlim_cur;
}

// A file system without this says so, and tells of a full disk later.
bool takeRoom(int fd, size_t size) {
  return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0 ||
         (errno != ENOSPC && errno != EDQUOT && errno != EFBIG);
}

// A regular file takes less than all only when it can hold no more.
bool writeAt(int fd, const guint8* data, size_t size, size_t offset) {
  const ssize_t count = pwrite(fd, data, size, static_cast<off_t>(offset));
  if (count >= 0 && static_cast<size_t>(count) < size) errno = ENOSPC;
  return count == static_cast<ssize_t>(size);
}

// Some file systems tell only now that the disk is full.
bool isKept(int fd) {
  const int other = dup(fd);
  return other >= 0 && close(other) == 0;
}

}  // namespace

int openEmptyFile(const char* path) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
  struct stat status {};
  if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))) return fd;
  close(fd);
  errno = EINVAL;
  return -1;
}

bool writeWhole(int fd, const GstMapInfo& bytes) {
  const size_t first = std::min(bytes.size, kFirstBytes);
  if (isAllowed(bytes.size) && takeRoom(fd, bytes.size) &&
      writeAt(fd, bytes.data + first, bytes.size - first, first) &&
      writeAt(fd, bytes.data, first, 0) && isKept(fd)) {
    return true;
  }
  const int error = errno;
  if (ftruncate(fd, 0) != 0) errno = error;
  errno = error;
  return false;
}
