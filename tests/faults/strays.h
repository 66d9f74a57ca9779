// What a killed process may leave behind: files and processes.
#ifndef TESTS_FAULTS_STRAYS_H
#define TESTS_FAULTS_STRAYS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

// The names in a folder, hidden ones too; none where it is not.
std::vector<std::string> namesIn(const std::string& folder);

// The living processes that have `text` on their command line, this one apart.
std::vector<pid_t> processesAbout(const std::string& text);
// Those of them that are called `name`.
std::vector<pid_t> processesNamed(const std::string& name, const std::string& text);

// Waits for the condition; whether it came to hold in time.
bool comesTrueWithin(int milliseconds, const std::function<bool()>& condition);

#endif
