// A task whose IN or OUT is "-".
#ifndef CLIENT_COMMANDS_PIPED_TASK_H
#define CLIENT_COMMANDS_PIPED_TASK_H

#include "client/commands/run_tasks.h"

bool isPiped(const Options& options);

// Reads standard input to its end, makes the file, and writes it to standard output. What is told
// goes to stderr where the file goes to stdout.
ExitCode runPiped(const Options& options, Media media, Make make);

#endif
