#include "client/commands/in_out.h"

#include <filesystem>

#include "client/files/input_file.h"

namespace fs = std::filesystem;

std::string absolutePath(const std::string& path) {
  return fs::absolute(path).lexically_normal();
}

InOut inOutOf(const Options& options) {
  return {absolutePath(options.words[0]), absolutePath(options.words[1])};
}

ExitCode checkInOut(const InOut& files) {
  std::string error;
  if (!isUsableInput(files.in, &error)) {
    return sayFailure("cannot read " + files.in + ": " + error);
  }
  std::error_code ignored;
  if (fs::equivalent(files.in, files.out, ignored)) {
    return sayFailure("input and output are the same file");
  }
  return ExitDone;
}
