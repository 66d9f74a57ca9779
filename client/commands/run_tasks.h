// Runs what a command makes of each of its files, and tells of it.
#ifndef CLIENT_COMMANDS_RUN_TASKS_H
#define CLIENT_COMMANDS_RUN_TASKS_H

#include <functional>

#include "client/commands/file_task.h"
#include "client/commands/outcome.h"
#include "client/service/step.h"

// Hears of a file's work.
struct Watcher {
  std::function<void(const Step& step)> show;
  std::function<void(const std::string& words)> note;  // what a user may want to know
};

// Makes one file, whose names and sizes the outcome has already. False when it is a failure.
using Make = bool (*)(const FileTask& task, const Options& options, const Watcher& watcher,
                      Outcome* outcome);

// Each outcome is told as it comes: results on stdout, failures on stderr, and with --json all on
// stdout. The exit code is that of the only file, or tells of all.
ExitCode runTasks(const Options& options, Media media, Make make);

// What becomes of a file, from a look at its input to the end.
Outcome makeOne(const FileTask& task, const Options& options, Make make, const Watcher& watcher);

// The same, with a progress line where a terminal is watched.
Outcome makeOneShown(const FileTask& task, const Options& options, Make make);

// Tells of one. A failure names the file.
void tell(const Outcome& outcome, const Options& options);

#endif
