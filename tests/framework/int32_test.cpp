#include "src/framework/int32.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(Int32, TruncatesTowardZero) {
  EXPECT_EQ(truncateToInt32(2.9), 2);
  EXPECT_EQ(truncateToInt32(-2.9), -2);
  EXPECT_EQ(truncateToInt32(-0.9), 0);
  EXPECT_EQ(truncateToInt32(2147483647.9), INT32_MAX);
  EXPECT_EQ(truncateToInt32(-2147483648.9), INT32_MIN);
}

TEST(Int32, WhatDoesNotFitIsTheLeast) {
  for (const double number :
       {2147483648.0, -2147483649.0, 1e300, -1e300, std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(truncateToInt32(number), INT32_MIN);
  }
}

TEST(Int32, WrapsAround) {
  EXPECT_EQ(wrappedSum(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(wrappedSum(-2, -3), -5);
  EXPECT_EQ(wrappedProduct(INT32_MAX, 2), -2);
  EXPECT_EQ(wrappedProduct(-3, 5), -15);
}

}  // namespace
