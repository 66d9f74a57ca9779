#include "platform/ffmpeg/job/output_folders.h"

#include <unistd.h>

#include <fstream>

#include "platform/ffmpeg/files/pass_log_guard.h"

namespace {

constexpr size_t kMostFolders = 100;

}  // namespace

OutputFolders::OutputFolders(const Options& asked) : options(asked), folders(asked.target()) {
  if (options.pass != 2) return;
  size_t number = 0;
  std::ifstream(noteFile()) >> number;
  if (number <= kMostFolders) folders.adopt(options.target(), number);
}

std::string OutputFolders::noteFile() const {
  return options.passLogPrefix + "-3.log";
}

void OutputFolders::allowRemoval(Sandbox* sandbox) const {
  if (!folders.above().empty()) sandbox->mayRemoveFolders(folders.above());
}

void OutputFolders::settle(bool succeeded) {
  if (succeeded) {
    if (options.pass == 1 && folders.count() > 0) std::ofstream(noteFile()) << folders.count();
    folders.keep();
    return;
  }
  if (options.pass == 0) return;
  for (const std::string& log : passLogs(options.passLogPrefix)) {
    unlink(log.c_str());
  }
}
