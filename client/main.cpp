#include <signal.h>

#include <exception>

#include "client/commands/command_line.h"

namespace {

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
    return end(runCommandLine({argv + 1, argv + argc}));
  } catch (const std::exception& problem) {
    return sayFailure(problem.what());
  }
}
