#include "src/movie/extended_float.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

#include "src/framework/int32.h"

namespace {

TEST(ExtendedFloatTest, HasAMantissaOf64Bits) {
  const ExtendedFloat one = 1;
  EXPECT_GT(one + ExtendedFloat(std::ldexp(1.0, -63)), one);
  EXPECT_EQ(one + ExtendedFloat(std::ldexp(1.0, -64)), one);
}

TEST(ExtendedFloatTest, ProductIsNotRoundedToDoubleBeforeItIsCut) {
  EXPECT_EQ(truncateToInt32(0.3 * 1000), 300);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(0.3) * 1000), 299);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(800000) * 0.96), 767999);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(1000000) * 0.95), 949999);
}

TEST(ExtendedFloatTest, WhatDoesNotFitIsTheLowestNumber) {
  EXPECT_EQ(truncateToInt32(ExtendedFloat(2147483647.9)), INT32_MAX);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(2147483648.0)), INT32_MIN);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(-2147483648.9)), INT32_MIN);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(-2147483650.0)), INT32_MIN);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(1e300) * 1000), INT32_MIN);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(1) / ExtendedFloat(0)), INT32_MIN);
  EXPECT_EQ(truncateToInt32(ExtendedFloat(-0.9)), 0);
}

// Where the CPU has this format itself, both must agree on whatever is planned.
#if LDBL_MANT_DIG == 64
TEST(ExtendedFloatTest, AgreesWithTheNativeType) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int32_t> anyInt(INT32_MIN, INT32_MAX);
  std::uniform_int_distribution<int32_t> duration(1, 10000000);
  std::uniform_real_distribution<double> seconds(-3000000, 3000000);
  for (int i = 0; i < 100000; i++) {
    const int32_t size = anyInt(random) >> (i % 16);
    const int32_t ms = duration(random) >> (i % 20);
    if (ms == 0) continue;
    const double time = i % 2 == 0 ? seconds(random) : std::round(seconds(random)) / 1000;

    ASSERT_EQ(truncateToInt32(ExtendedFloat(time) * 1000),
              truncateToInt32(static_cast<long double>(time) * 1000))
        << time;
    ASSERT_EQ(
        truncateToInt32(ExtendedFloat(size) / (ExtendedFloat(ms) / 1000) * 8),
        truncateToInt32(static_cast<long double>(size) / (static_cast<long double>(ms) / 1000) * 8))
        << size << " " << ms;
    ASSERT_EQ(truncateToInt32(ExtendedFloat(size) * 0.96),
              truncateToInt32(static_cast<long double>(size) * 0.96))
        << size;
    ASSERT_EQ(truncateToInt32(ExtendedFloat(size) * 0.95),
              truncateToInt32(static_cast<long double>(size) * 0.95))
        << size;
  }
}
#endif

}  // namespace
