// The size of a file where sizes are 32-bit numbers.
#ifndef SRC_MOVIE_FILE_SIZE_H
#define SRC_MOVIE_FILE_SIZE_H

#include <cstdint>
#include <string>

// Stores the byte size of what is at that path. Returns false, and stores nothing, when there is
// nothing, it may not be looked at, or its size does not fit.
bool fileSizeOf(const std::string& path, int32_t* sizeBytes);

#endif
