#include "platform/ffmpeg/files/shared_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/ffmpeg/files/progress_file.h"

std::string sharedFolder(const std::string& temporary) {
  std::string folder = ProgressFile::folder();
  if (!folder.empty()) return folder;
  folder = temporary + "/tarn-transcode-" + std::to_string(geteuid());
  mkdir(folder.c_str(), 0700);
  // Where everybody may write, somebody else may have been first.
  struct stat status {};
  const bool isOurs = lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                      status.st_uid == geteuid() && (status.st_mode & 077) == 0;
  return isOurs ? folder : "";
}
