#include "platform/ffmpeg/files/paths.h"

#include <climits>
#include <cstdlib>

std::string resolved(const std::string& path) {
  char whole[PATH_MAX];
  return realpath(path.c_str(), whole) ? whole : path;
}

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}
