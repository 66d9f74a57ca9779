// The two files that a command is about: IN, which must be there, and OUT, which must be another.
#ifndef CLIENT_COMMANDS_IN_OUT_H
#define CLIENT_COMMANDS_IN_OUT_H

#include <string>

#include "client/commands/options.h"
#include "client/commands/report.h"

struct InOut {
  std::string in;  // both absolute
  std::string out;
};

// The absolute path of what the user called `path`.
std::string absolutePath(const std::string& path);

// The two that are the words of a command.
InOut inOutOf(const Options& options);

// Looks whether IN can be read, and is not OUT. Says what is wrong and returns the exit code for
// it, or returns ExitDone.
ExitCode checkInOut(const InOut& files);

#endif
