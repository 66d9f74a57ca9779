#include "client/commands/in_out.h"

#include <filesystem>

#include "client/files/input_file.h"

namespace fs = std::filesystem;

std::string absolutePath(const std::string& path) {
  return fs::absolute(path).lexically_normal();
}

ExitCode takeInOut(const Arguments& arguments, const std::string& command, InOut* files) {
  if (!arguments.errorText().empty()) return sayUsage(arguments.errorText());
  if (arguments.positional().size() != 2) return sayUsage(command + " needs IN and OUT");
  files->in = absolutePath(arguments.positional()[0]);
  files->out = absolutePath(arguments.positional()[1]);
  return ExitDone;
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
