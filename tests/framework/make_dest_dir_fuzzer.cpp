// Feeds any path to makeDestDir, on a file system that is only made up: what it makes must begin at
// the root and be no longer than the path.
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "src/framework/make_dest_dir.h"

namespace {

size_t gLongest;  // of the directories that may be made; 0 while the fuzzer itself is at work

}  // namespace

extern "C" {

// Linked in with --wrap. Some of the names are there, some cannot be made.
int __real_stat(const char* path, struct stat* status);
int __wrap_stat(const char* path, struct stat* status) {
  if (gLongest == 0) return __real_stat(path, status);
  return strlen(path) % 3 == 0 ? 0 : -1;
}

int __real_mkdir(const char* path, mode_t mode);
int __wrap_mkdir(const char* path, mode_t mode) {
  if (gLongest == 0) return __real_mkdir(path, mode);
  if (path[0] != '/' || strlen(path) > gLongest || mode != 0777) abort();
  errno = EACCES;
  return strlen(path) % 7 == 0 ? -1 : 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string path = bytes.c_str();  // up to a NUL
  if (path.find_first_not_of('/') == std::string::npos) return 0;
  gLongest = path.size() + 1;
  makeDestDir(path.c_str());
  gLongest = 0;
  return 0;
}
}
