// A hidden folder beside a target file, in which the file is made before it takes its place.
#ifndef PLATFORM_FFMPEG_FILES_WORK_DIRECTORY_H
#define PLATFORM_FFMPEG_FILES_WORK_DIRECTORY_H

#include <memory>
#include <string>
#include <vector>

#include "platform/ffmpeg/files/janitor.h"

// Owns the folder: it and all it holds are removed at its end, and also when this process is
// killed. What a power cut leaves behind is removed by the next run for the same target.
class WorkDirectory {
 public:
  // The folder is made beside `target`, which need not exist. `companions` are files that are
  // removed with it when this process is killed, and only then. On failure stores one clear line in
  // *error and returns null.
  static std::unique_ptr<WorkDirectory> create(const std::string& target, std::string* error,
                                               const std::vector<std::string>& companions = {});
  ~WorkDirectory();
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

  const std::string& path() const { return folder; }
  std::string file(const std::string& name) const { return folder + "/" + name; }

 private:
  WorkDirectory(std::string path, const std::vector<std::string>& companions);

  std::string folder;
  int lockFd = -1;  // held while we live: a folder without a holder is stale
  Janitor janitor;
};

#endif
