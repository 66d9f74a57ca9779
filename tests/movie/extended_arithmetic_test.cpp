#include "src/movie/extended_arithmetic.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>

#include "src/framework/int32.h"

namespace {

TEST(ExtendedArithmeticTest, ProductIsNotRoundedToDoubleBeforeItIsCut) {
  EXPECT_EQ(truncateToInt32(0.3 * 1000), 300);
  EXPECT_EQ(extendedProduct(0.3, 1000), 299);
  EXPECT_EQ(extendedProduct(800000, 0.96), 767999);
  EXPECT_EQ(extendedProduct(1000000, 0.95), 949999);
}

// A narrower one would round the first product up to 1, a wider one not the second.
TEST(ExtendedArithmeticTest, MantissaHas64Bits) {
  EXPECT_EQ(extendedProduct(1 + std::ldexp(1.0, -32), 1 - std::ldexp(1.0, -32)), 0);
  EXPECT_EQ(extendedProduct(1 + std::ldexp(1.0, -33), 1 - std::ldexp(1.0, -33)), 1);
}

TEST(ExtendedArithmeticTest, WhatDoesNotFitIsTheLowestNumber) {
  EXPECT_EQ(extendedProduct(2147483647.9, 1), INT32_MAX);
  EXPECT_EQ(extendedProduct(2147483648.0, 1), INT32_MIN);
  EXPECT_EQ(extendedProduct(-2147483648.9, 1), INT32_MIN);
  EXPECT_EQ(extendedProduct(-2147483650.0, 1), INT32_MIN);
  EXPECT_EQ(extendedProduct(1e300, 1e300), INT32_MIN);
  EXPECT_EQ(extendedProduct(std::numeric_limits<double>::quiet_NaN(), 1), INT32_MIN);
  EXPECT_EQ(extendedProduct(-0.9, 1), 0);
  EXPECT_EQ(extendedBitrate(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(extendedBitrate(1, 0), INT32_MIN);
}

// Where the CPU has this format itself, both must agree on whatever is planned.
#if LDBL_MANT_DIG == 64
TEST(ExtendedArithmeticTest, AgreesWithTheNativeType) {
  using Native = long double;
  std::mt19937 random(1);
  std::uniform_int_distribution<int32_t> anyInt(INT32_MIN, INT32_MAX);
  std::uniform_int_distribution<int32_t> duration(1, 10000000);
  std::uniform_real_distribution<double> seconds(-3000000, 3000000);
  for (int i = 0; i < 100000; i++) {
    const int32_t size = anyInt(random) >> (i % 16);
    const int32_t ms = duration(random) >> (i % 20);
    if (ms == 0) continue;
    const double time = i % 2 == 0 ? seconds(random) : std::round(seconds(random)) / 1000;

    ASSERT_EQ(extendedProduct(time, 1000), truncateToInt32(Native(time) * 1000)) << time;
    ASSERT_EQ(extendedBitrate(size, ms), truncateToInt32(Native(size) / (Native(ms) / 1000) * 8))
        << size << " " << ms;
    ASSERT_EQ(extendedProduct(size, 0.96), truncateToInt32(Native(size) * 0.96)) << size;
    ASSERT_EQ(extendedProduct(size, 0.95), truncateToInt32(Native(size) * 0.95)) << size;
  }
}
#endif

}  // namespace
