#include "platform/ffmpeg/files/made_folders.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/ffmpeg/files/paths.h"

namespace {

bool isThere(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

// The lowest `number` folders above the path, from the uppermost down.
std::vector<std::string> foldersAbove(const std::string& path, size_t number) {
  std::vector<std::string> folders;
  std::string folder = folderOf(path);
  while (folders.size() < number && folder != "/" && folder != ".") {
    folders.insert(folders.begin(), folder);
    folder = folderOf(folder);
  }
  return folders;
}

size_t missingAbove(const std::string& path) {
  size_t number = 0;
  for (std::string folder = folderOf(path); !isThere(folder); folder = folderOf(folder)) {
    ++number;
  }
  return number;
}

}  // namespace

MadeFolders::MadeFolders(const std::string& path) {
  for (const std::string& folder : foldersAbove(path, missingAbove(path))) {
    if (mkdir(folder.c_str(), 0777) != 0) return;
    if (made.empty()) aboveAll = folderOf(folder);
    made.push_back(folder);
  }
}

MadeFolders::~MadeFolders() {
  while (!made.empty()) {
    rmdir(made.back().c_str());
    made.pop_back();
  }
}

void MadeFolders::adopt(const std::string& path, size_t number) {
  if (!made.empty() || number == 0) return;
  made = foldersAbove(path, number);
  if (!made.empty()) aboveAll = folderOf(made.front());
}
