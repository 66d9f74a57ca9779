// The two files that a command is about: IN, which must be there, and OUT, which must be another.
#ifndef CLIENT_COMMANDS_IN_OUT_H
#define CLIENT_COMMANDS_IN_OUT_H

#include <string>

#include "client/commands/arguments.h"
#include "client/commands/report.h"

struct InOut {
  std::string in;  // both absolute
  std::string out;
};

// The absolute path of what the user called `path`.
std::string absolutePath(const std::string& path);

// Each says what is wrong and returns the exit code for it, or returns ExitDone.

// Takes the two from the words of `command` into *files.
ExitCode takeInOut(const Arguments& arguments, const std::string& command, InOut* files);
// Looks whether IN can be read, and is not OUT.
ExitCode checkInOut(const InOut& files);

#endif
