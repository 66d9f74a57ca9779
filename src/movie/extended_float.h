// The float that bitrates and times are planned in: a 64-bit mantissa, on every CPU.
#ifndef SRC_MOVIE_EXTENDED_FLOAT_H
#define SRC_MOVIE_EXTENDED_FLOAT_H

#include <boost/multiprecision/cpp_bin_float.hpp>

// Not long double: that has this mantissa on x86 only, and the planned numbers, truncated as they
// are, would differ by one from CPU to CPU.
using ExtendedFloat = boost::multiprecision::cpp_bin_float_double_extended;

#endif
