#include "client/files/made_folders.h"

#include <sys/stat.h>
#include <unistd.h>

MadeFolders::~MadeFolders() {
  for (auto folder = made.rbegin(); folder != made.rend(); ++folder) {
    rmdir(folder->c_str());
  }
}

bool MadeFolders::make(const std::filesystem::path& folder) {
  std::error_code ignored;
  if (folder.empty() || std::filesystem::exists(folder, ignored)) return true;
  if (!make(folder.parent_path()) || mkdir(folder.c_str(), 0777) != 0) return false;
  made.push_back(folder);
  return true;
}
