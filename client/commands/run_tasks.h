// Runs what a command makes of each of its files, and tells of it.
#ifndef CLIENT_COMMANDS_RUN_TASKS_H
#define CLIENT_COMMANDS_RUN_TASKS_H

#include <functional>

#include "client/commands/file_task.h"
#include "client/commands/outcome.h"

// Hears the share of a file's work that is done, 0 to 1.
using ShowShare = std::function<void(double share)>;

// Makes one file, whose names and sizes the outcome has already. False when it is a failure.
using Make = bool (*)(const FileTask& task, const Options& options, const ShowShare& show,
                      Outcome* outcome);

// Each outcome is told as it comes: results on stdout, failures on stderr, and with --json all on
// stdout. The exit code is that of the only file, or of the worst.
ExitCode runTasks(const Options& options, Make make);

// Tells of one.
void tell(const Outcome& outcome, const Options& options);

#endif
