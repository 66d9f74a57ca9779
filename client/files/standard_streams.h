// Standard input and output in the place of files: through a private folder, since the services
// take files alone.
#ifndef CLIENT_FILES_STANDARD_STREAMS_H
#define CLIENT_FILES_STANDARD_STREAMS_H

#include <functional>
#include <string>

// A folder that nobody else may look into, in $TMPDIR or /tmp. Goes with the files in it.
class PrivateFolder {
 public:
  // On failure path() is empty and errno says why.
  PrivateFolder();
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::string& path() const { return folder; }

 private:
  std::string folder;
};

// Both ask `goesOn` a few times a second, and fail with EINTR when it is false. On failure *error
// says why.

// Writes what comes from standard input to the file.
bool takeStandardInput(const std::string& path, const std::function<bool()>& goesOn,
                       std::string* error);

// Writes the file to standard output. A reader that goes away makes it fail.
bool giveToStandardOutput(const std::string& path, const std::function<bool()>& goesOn,
                          std::string* error);

#endif
