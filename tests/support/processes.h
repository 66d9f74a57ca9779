// The processes of this machine that a test has to do with.
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <sys/types.h>

#include <string>
#include <vector>

// The living processes that have `text` on their command line, this one apart.
std::vector<pid_t> processesAbout(const std::string& text);
// Those of them that are called `name`.
std::vector<pid_t> processesNamed(const std::string& name, const std::string& text);

#endif
