// The command line of tarn-transcode: which command is run, with which options, and the help.
#ifndef CLIENT_COMMANDS_COMMAND_LINE_H
#define CLIENT_COMMANDS_COMMAND_LINE_H

#include <string>
#include <vector>

#include "client/commands/report.h"

// Runs the command that the words behind the program's name make. Help goes to stdout; where the
// words make no command, its use and the reason go to stderr, the reason last.
ExitCode runCommandLine(const std::vector<std::string>& words);

#endif
