// An output file that appears under its name only when it is whole.
//
// The service writes to a temporary name beside the target, which is held meanwhile
// (platform/held/held_file.h). Until commit() succeeds the target is as it was; without it the
// temporary file and the folders made for it are removed on destruction.
#ifndef CLIENT_FILES_STAGED_OUTPUT_H
#define CLIENT_FILES_STAGED_OUTPUT_H

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "client/files/made_folders.h"

class StagedOutput {
 public:
  // Makes the folders above the target and the empty temporary file, with the extension of the
  // target in small letters. A target that is a symbolic link stays one: the file it leads to is
  // replaced, or made. What is there and no regular file is refused. On failure temporaryPath() is
  // empty and errorText() says why. With `keepsOld` a target that appears meanwhile is no more
  // replaced than one that is refused.
  explicit StagedOutput(const std::string& target, bool keepsOld = false);
  ~StagedOutput();
  StagedOutput(const StagedOutput&) = delete;
  StagedOutput& operator=(const StagedOutput&) = delete;

  // Absolute.
  const std::string& temporaryPath() const { return temporary; }
  const std::string& targetPath() const { return target; }
  const std::string& errorText() const { return error; }

  // Whether the disk would take that much more.
  bool hasRoomFor(uintmax_t bytes) const;
  // Nobody waits for the output any more: whoever makes it leaves it.
  void letGo();
  // Renames the temporary file to the target. On failure the target is as it was, and errorText()
  // says why.
  bool commit();

 private:
  bool takeTarget(const std::string& path);
  bool makeTemporary(const std::filesystem::path& real);

  std::string target;
  std::string temporary;
  std::string error;
  MadeFolders folders;
  int heldFd = -1;
  const bool isNew;  // only a target that is not there is made
  mode_t mode = 0;   // of the file that takes the target's place
};

#endif
