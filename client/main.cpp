#include <signal.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "client/commands/commands.h"

namespace {

struct Command {
  const char* name;
  ExitCode (*run)(const std::vector<std::string>& words);
};

const Command kCommands[] = {
    {"call", runCall},
#ifdef TARN_FIT
    {"fit", runFit},
#endif
    {"info", runInfo},
    {"min-bitrate", runMinBitrate},
    {"resize-image", runResizeImage},
    {"resize-movie", runResizeMovie},
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

// By the signal itself, so that a shell sees that it was so and does not go on with its loop.
int end(ExitCode exitCode) {
  if (exitCode > ExitSignal) {
    signal(exitCode - ExitSignal, SIG_DFL);
    raise(exitCode - ExitSignal);
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit fails instead, and says why
  try {
    return end(runCommand(argc, argv));
  } catch (const std::exception& problem) {
    return sayFailure(problem.what());
  }
}
