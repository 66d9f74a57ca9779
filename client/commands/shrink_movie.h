// Has the service encode a movie anew.
#ifndef CLIENT_COMMANDS_SHRINK_MOVIE_H
#define CLIENT_COMMANDS_SHRINK_MOVIE_H

#include "client/commands/run_tasks.h"

// Makes one movie, as Make says.
bool shrinkMovie(const FileTask& task, const Options& options, const Watcher& watcher,
                 Outcome* outcome);

#endif
