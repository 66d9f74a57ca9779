// The folders above a file that is to be made, taken away again when nothing came of it.
#ifndef PLATFORM_FFMPEG_FILES_MADE_FOLDERS_H
#define PLATFORM_FFMPEG_FILES_MADE_FOLDERS_H

#include <string>
#include <vector>

// Removes what it made at its end, unless keep() was called; folders that are not empty stay.
class MadeFolders {
 public:
  // Makes what is missing above `path`. Where that fails nothing happens: whoever writes there
  // will say why it cannot.
  explicit MadeFolders(const std::string& path);
  ~MadeFolders();
  MadeFolders(const MadeFolders&) = delete;
  MadeFolders& operator=(const MadeFolders&) = delete;

  // The folder in which the uppermost was made; empty when none was.
  const std::string& above() const { return aboveAll; }
  // How many were made; another run for the same path may have to answer for them.
  size_t count() const { return made.size(); }
  // Answers for the `number` lowest folders above the path as if they had been made here.
  void adopt(const std::string& path, size_t number);
  void keep() { made.clear(); }

 private:
  std::string aboveAll;
  std::vector<std::string> made;  // from the uppermost down
};

#endif
