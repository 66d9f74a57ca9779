// How several files share a number of bytes.
#ifndef CLIENT_UNITS_SHARED_SIZE_H
#define CLIENT_UNITS_SHARED_SIZE_H

#include <cstdint>
#include <vector>

// What each file of those sizes may have of the total: the same for all, but that a file which
// needs less leaves the rest to the others.
std::vector<int64_t> sharesOf(int64_t totalBytes, const std::vector<int64_t>& sizes);

#endif
