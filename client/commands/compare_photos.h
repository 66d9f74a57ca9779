// Shows a photo before and after it was made fit.
#ifndef CLIENT_COMMANDS_COMPARE_PHOTOS_H
#define CLIENT_COMMANDS_COMPARE_PHOTOS_H

#include "client/commands/file_task.h"
#include "client/commands/outcome.h"

// Whether IN is a photo and the picture another file than IN and OUT.
bool mayCompare(const FileTask& task, const std::string& picture, Outcome* outcome);

// Makes the picture of a task that is done, and tells how alike IN and OUT are. False when it is a
// failure, though OUT is there.
bool comparePhotos(const FileTask& task, const Options& options, Outcome* outcome);

#endif
