#include "src/movie/file_size.h"

#include <sys/stat.h>

bool fileSizeOf(const std::string& path, int32_t* sizeBytes) {
  struct stat attributes;
  if (stat(path.c_str(), &attributes) != 0 || attributes.st_size > INT32_MAX) return false;
  *sizeBytes = static_cast<int32_t>(attributes.st_size);
  return true;
}
