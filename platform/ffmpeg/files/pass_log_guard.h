// The files of a first pass, which wait for the second, and for nobody when the caller of both is
// killed in between.
#ifndef PLATFORM_FFMPEG_FILES_PASS_LOG_GUARD_H
#define PLATFORM_FFMPEG_FILES_PASS_LOG_GUARD_H

#include <sys/types.h>

#include <string>
#include <vector>

// PREFIX-0.log to PREFIX-9.log: the caller of both passes removes them after the second.
std::vector<std::string> passLogs(const std::string& prefix);

// Starts a process that removes the files if `caller` ends before they are gone, and ends itself as
// soon as they are, but not while we run. Where that cannot be done nothing happens. Called before
// a sandbox is entered, which bars what it takes.
void guardPassLogs(const std::vector<std::string>& files, pid_t caller);

#endif
