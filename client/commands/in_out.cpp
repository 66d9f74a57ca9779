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
  const std::string whyNot = whyNoInput(files.in);
  if (!whyNot.empty()) return sayFailure("cannot read " + files.in + ": " + whyNot);
  std::error_code ignored;
  if (fs::equivalent(files.in, files.out, ignored)) {
    return sayFailure("input and output are the same file");
  }
  return ExitDone;
}
