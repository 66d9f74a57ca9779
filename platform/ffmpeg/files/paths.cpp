#include "platform/ffmpeg/files/paths.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

std::string resolved(const std::string& path) {
  char whole[PATH_MAX];
  return realpath(path.c_str(), whole) ? whole : path;
}

std::string textOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}
