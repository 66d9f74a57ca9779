#include "client/files/input_file.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

// Nothing but a regular file is opened: a FIFO would wait.
bool opens(const std::string& path, const struct stat& attributes) {
  if (!S_ISREG(attributes.st_mode)) return true;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor >= 0) close(descriptor);
  return descriptor >= 0;
}

}  // namespace

bool isUsableInput(const std::string& path, std::string* error) {
  struct stat attributes;
  if (g_utf8_validate(path.c_str(), -1, nullptr) == FALSE) {
    *error = "its name is not UTF-8";
  } else if (stat(path.c_str(), &attributes) != 0 || !opens(path, attributes)) {
    *error = strerror(errno);
  } else if (!S_ISREG(attributes.st_mode)) {
    *error = "it is not a regular file";
  } else if (attributes.st_size == 0) {
    *error = "it is empty";
  } else if (attributes.st_size > INT32_MAX) {
    *error = "it is larger than 2 GB, the most the service takes";
  } else {
    return true;
  }
  return false;
}
