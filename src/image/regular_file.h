// Opens regular files and nothing else, and never waits: a FIFO would hold the main loop up for
// ever, a device could do anything.
#ifndef SRC_IMAGE_REGULAR_FILE_H
#define SRC_IMAGE_REGULAR_FILE_H

#include <cstdio>

// Null when there is no such file, or it is something else.
FILE* openRegularFile(const char* path);

// Creates the file, or empties the one that is there. Null when it cannot, when something else is
// there, and when that is the file that input reads, under whatever name: then nothing is touched.
FILE* emptyRegularFile(const char* path, FILE* input);

#endif
