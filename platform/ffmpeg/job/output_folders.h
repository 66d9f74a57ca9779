// The folders above the output of a request of one run or of two.
#ifndef PLATFORM_FFMPEG_JOB_OUTPUT_FOLDERS_H
#define PLATFORM_FFMPEG_JOB_OUTPUT_FOLDERS_H

#include "platform/ffmpeg/files/made_folders.h"
#include "platform/ffmpeg/process/sandbox.h"
#include "platform/ffmpeg/request/options.h"

// Makes those that are missing and takes them away again when the request fails, in whichever of
// its runs: the first of two leaves a note of how many it made. Made before the sandbox is entered.
class OutputFolders {
 public:
  explicit OutputFolders(const Options& options);
  // What removing them takes.
  void allowRemoval(Sandbox* sandbox) const;
  // The run has ended. After a failure the pass logs go as well: nobody is left to read them.
  void settle(bool succeeded);

 private:
  std::string noteFile() const;

  Options options;
  MadeFolders folders;
};

#endif
