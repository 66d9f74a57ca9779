// Folders that were made for files, and go again when no file came into them.
#ifndef CLIENT_FILES_MADE_FOLDERS_H
#define CLIENT_FILES_MADE_FOLDERS_H

#include <filesystem>
#include <string>
#include <vector>

class MadeFolders {
 public:
  MadeFolders() = default;
  // Removes those that it made and that are empty.
  ~MadeFolders();
  MadeFolders(const MadeFolders&) = delete;
  MadeFolders& operator=(const MadeFolders&) = delete;

  // Makes the folder and those above it that are not there. On failure errno says why.
  bool make(const std::filesystem::path& folder);

 private:
  std::vector<std::string> made;  // from the uppermost down
};

#endif
