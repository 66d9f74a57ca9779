#include "src/image/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isSameFile(const struct stat& one, FILE* other) {
  struct stat two;
  return fstat(fileno(other), &two) == 0 && one.st_dev == two.st_dev && one.st_ino == two.st_ino;
}

}  // namespace

FILE* openRegularFile(const char* path) {
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat found;
  FILE* stream = fstat(fd, &found) == 0 && S_ISREG(found.st_mode) ? fdopen(fd, "rb") : nullptr;
  if (stream == nullptr) close(fd);
  return stream;
}

FILE* emptyRegularFile(const char* path, FILE* input) {
  struct stat found;
  if (stat(path, &found) == 0 && (!S_ISREG(found.st_mode) || isSameFile(found, input))) {
    return nullptr;
  }
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  FILE* stream = fdopen(fd, "wb");
  if (stream == nullptr) close(fd);
  return stream;
}
