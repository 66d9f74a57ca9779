// Makes an output that is the input, byte for byte.
#ifndef CLIENT_COMMANDS_COPY_FILE_H
#define CLIENT_COMMANDS_COPY_FILE_H

#include "client/commands/file_task.h"
#include "client/commands/outcome.h"
#include "client/files/staged_output.h"

// The output takes its name at the end. False when it is a failure.
bool copyAsItIs(const FileTask& task, StagedOutput* output, Outcome* outcome);

#endif
