// What bitrates and times are planned with: formed with a 64-bit mantissa on every CPU, then cut as
// truncateToInt32() does.
//
// Not long double: that has this mantissa on x86 only, and the planned numbers would differ by one
// from CPU to CPU.
#ifndef SRC_MOVIE_EXTENDED_ARITHMETIC_H
#define SRC_MOVIE_EXTENDED_ARITHMETIC_H

#include <cstdint>

// a * b. The double nearest to a factor like 0.96 lies below it, so a product that should be whole
// ends up one less.
int32_t extendedProduct(double a, double b);

// The bits per second at which so many bytes last so many milliseconds.
int32_t extendedBitrate(int32_t sizeBytes, int32_t durationMs);

#endif
