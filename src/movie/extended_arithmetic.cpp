#include "src/movie/extended_arithmetic.h"

#include <boost/multiprecision/cpp_bin_float.hpp>

#include "src/framework/int32.h"

using Extended = boost::multiprecision::cpp_bin_float_double_extended;

int32_t extendedProduct(double a, double b) {
  return truncateToInt32(Extended(a) * b);
}

int32_t extendedBitrate(int32_t sizeBytes, int32_t durationMs) {
  const Extended seconds = Extended(durationMs) / 1000;
  return truncateToInt32(Extended(sizeBytes) / seconds * 8);
}
