// An output file that appears under its name only when it is whole.
//
// The service writes to a temporary name beside the target. Until commit() succeeds the target is
// as it was; without it the temporary file is removed on destruction.
#ifndef CLIENT_FILES_STAGED_OUTPUT_H
#define CLIENT_FILES_STAGED_OUTPUT_H

#include <sys/types.h>

#include <string>

class StagedOutput {
 public:
  // Makes the directories above the target and the empty temporary file, with the extension of the
  // target. A target that is a symbolic link stays one: the file behind it is replaced. On failure
  // temporaryPath() is empty and errorText() says why.
  explicit StagedOutput(const std::string& target);
  ~StagedOutput();
  StagedOutput(const StagedOutput&) = delete;
  StagedOutput& operator=(const StagedOutput&) = delete;

  // Absolute.
  const std::string& temporaryPath() const { return temporary; }
  const std::string& targetPath() const { return target; }
  const std::string& errorText() const { return error; }

  // Renames the temporary file to the target. On failure the target is as it was, and errorText()
  // says why.
  bool commit();

 private:
  std::string target;
  std::string temporary;
  std::string error;
  mode_t mode = 0;  // of the file that takes the target's place
};

#endif
