// A hidden folder beside a target file, in which the file is made before it takes its place.
#ifndef PLATFORM_FFMPEG_FILES_WORK_DIRECTORY_H
#define PLATFORM_FFMPEG_FILES_WORK_DIRECTORY_H

#include <memory>
#include <string>

// Owns the folder: it and all it holds are removed at its end. A run that was killed leaves its
// folder behind; the next one for the same target removes it.
class WorkDirectory {
 public:
  // The folder is made beside `target`, which need not exist. On failure stores one clear line in
  // *error and returns null.
  static std::unique_ptr<WorkDirectory> create(const std::string& target, std::string* error);
  ~WorkDirectory();
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

  const std::string& path() const { return folder; }
  std::string file(const std::string& name) const { return folder + "/" + name; }

 private:
  WorkDirectory(std::string path, int lock) : folder(std::move(path)), lockFd(lock) {}

  std::string folder;
  int lockFd;  // held while we live: a folder without a holder is stale
};

#endif
