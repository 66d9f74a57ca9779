// What a command tells the user beside its result: all of it on stderr, and the exit code with it.
#ifndef CLIENT_COMMANDS_REPORT_H
#define CLIENT_COMMANDS_REPORT_H

#include <string>

#include "client/service/service_call.h"

enum ExitCode {
  ExitDone = 0,
  ExitFailed = 1,     // refused, or tried and failed
  ExitUsage = 2,      // the words make no command
  ExitNoService = 3,  // no bus, or no service on it
  ExitCannotFit = 4,  // so few bytes hold no such picture or movie
  ExitSignal = 128,   // and more: a signal of that number above it ended the command
};

// Why something failed.
ExitCode sayFailure(const std::string& reason);
// The disk of `out` has no room for it.
ExitCode sayNoSpace(const std::string& out);
// The signal of that number ended the command.
ExitCode sayInterrupted(int number);
// Why there is no reply.
ExitCode sayNoReply(const Answer& answer);

#endif
