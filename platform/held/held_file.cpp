#include "platform/held/held_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

struct flock wholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

bool hasHeldName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return path.compare(slash == std::string::npos ? 0 : slash + 1, sizeof(kHeldPrefix) - 1,
                      kHeldPrefix) == 0;
}

// Locks of the opening and not of the process, whose locks would go with any descriptor of the
// file.
bool holdFile(int fd) {
  struct flock lock = wholeFile(F_WRLCK);
  return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

bool isLetGo(int fd) {
  struct flock lock = wholeFile(F_RDLCK);
  return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
}

bool isWithdrawn(const std::string& path) {
  if (!hasHeldName(path)) return false;
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT;
  const bool letGo = isLetGo(fd);
  close(fd);
  return letGo;
}

bool awaitLetGo(int fd) {
  int result = 0;
  do {
    struct flock lock = wholeFile(F_RDLCK);
    result = fcntl(fd, F_OFD_SETLKW, &lock);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}
