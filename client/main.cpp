#include <cstdio>
#include <cstring>
#include <exception>

#include "client/commands.h"

namespace {

const char kUsage[] =
    "usage: tarn-transcode COMMAND ...\n"
    "\n"
    "  resize-image IN OUT --size SIZE   make a JPEG of at most SIZE bytes (300k, 1.5M, 64Ki)\n"
    "  min-bitrate                       print the least bitrate of a movie\n"
    "  call METHOD JSON                  send a request as it is and print the reply\n"
    "\n"
    "  --json    print the service's reply instead of words\n"
    "  --quiet   print nothing on success\n"
    "\n"
    "Exit codes: 0 done, 1 refused or failed, 2 usage, 3 no service.\n";

struct Command {
  const char* name;
  ExitCode (*run)(const std::vector<std::string>& words);
};

const Command kCommands[] = {
    {"call", runCall},
    {"min-bitrate", runMinBitrate},
    {"resize-image", runResizeImage},
};

ExitCode runCommand(int argc, char** argv) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return ExitUsage;
  }
  if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "help") == 0) {
    fputs(kUsage, stdout);
    return ExitDone;
  }
  for (const Command& command : kCommands) {
    if (strcmp(argv[1], command.name) == 0) {
      return command.run(std::vector<std::string>(argv + 2, argv + argc));
    }
  }
  return sayUsage(std::string("there is no command ") + argv[1]);
}

}  // namespace

ExitCode sayUsage(const std::string& reason) {
  fprintf(stderr, "tarn-transcode: %s\n\n%s", reason.c_str(), kUsage);
  return ExitUsage;
}

ExitCode sayFailure(const std::string& reason) {
  fprintf(stderr, "tarn-transcode: %s\n", reason.c_str());
  return ExitFailed;
}

ExitCode sayNoReply(const Answer& answer) {
  sayFailure(answer.errorText);
  return answer.kind == Answer::NoService ? ExitNoService : ExitFailed;
}

int main(int argc, char** argv) {
  try {
    return runCommand(argc, argv);
  } catch (const std::exception& problem) {
    return sayFailure(problem.what());
  }
}
