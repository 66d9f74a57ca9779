// Makes many files, several at a time, each in a process of its own: what happens to one of them
// happens to no other, and each ends by signals as a command of one file does.
#ifndef CLIENT_COMMANDS_MANY_FILES_H
#define CLIENT_COMMANDS_MANY_FILES_H

#include <vector>

#include "client/commands/run_tasks.h"

// Tells of each file as it is made, in the order in which they end, and of all of them at the end.
// Forks, so nothing may have made a thread. A signal is passed on to the files in hand.
//
// The exit code is 1 if any file failed; where there is no service the rest is not begun.
ExitCode runMany(const std::vector<FileTask>& tasks, const Options& options, Make make);

#endif
