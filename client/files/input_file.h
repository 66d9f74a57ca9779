// A quick look at an input file before the service is asked about it.
#ifndef CLIENT_FILES_INPUT_FILE_H
#define CLIENT_FILES_INPUT_FILE_H

#include <string>

// Why the service could not be given the file, or "" when it could: it must be a regular file that
// opens for reading, of a size that the service can count, under a name that JSON can carry.
std::string whyNoInput(const std::string& path);

#endif
