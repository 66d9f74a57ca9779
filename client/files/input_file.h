// A quick look at an input file before the service is asked about it.
#ifndef CLIENT_FILES_INPUT_FILE_H
#define CLIENT_FILES_INPUT_FILE_H

#include <string>

// Whether the service can be given the file: a regular file that opens for reading, of a size that
// the service can count, under a name that JSON can carry. If not, *error says why.
bool isUsableInput(const std::string& path, std::string* error);

#endif
