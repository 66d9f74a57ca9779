// How a command ends, and what it says of that on stderr.
#ifndef CLIENT_COMMANDS_REPORT_H
#define CLIENT_COMMANDS_REPORT_H

#include <string>

enum ExitCode {
  ExitDone = 0,
  ExitFailed = 1,     // refused, or tried and failed
  ExitUsage = 2,      // the words make no command
  ExitNoService = 3,  // no bus, or no service on it
  ExitCannotFit = 4,  // so few bytes hold no such picture or movie
  ExitSignal = 128,   // and more: a signal of that number above it ended the command
};

// Whether failures are marked in red: where stderr is a terminal that shows colours and the user
// has not set NO_COLOR. Decided when first asked.
bool showsColours();

// Says why something failed.
ExitCode sayFailure(const std::string& reason);

#endif
