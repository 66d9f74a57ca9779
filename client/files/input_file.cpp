#include "client/files/input_file.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

std::string whyNoInput(const std::string& path) {
  if (g_utf8_validate(path.c_str(), -1, nullptr) == FALSE) return "its name is not UTF-8";
  struct stat attributes;
  if (stat(path.c_str(), &attributes) != 0) return strerror(errno);
  if (!S_ISREG(attributes.st_mode)) return "it is not a regular file";
  if (attributes.st_size == 0) return "it is empty";
  if (attributes.st_size > INT32_MAX) return "it is larger than 2 GB, the most the service takes";
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return strerror(errno);
  close(descriptor);
  return "";
}
