#include "src/framework/int32.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(Int32, TruncatesTowardZero) {
  EXPECT_EQ(2, truncateToInt32(2.9));
  EXPECT_EQ(-2, truncateToInt32(-2.9));
  EXPECT_EQ(0, truncateToInt32(-0.9));
  EXPECT_EQ(INT32_MAX, truncateToInt32(2147483647.9));
  EXPECT_EQ(INT32_MIN, truncateToInt32(-2147483648.9));
}

TEST(Int32, WhatDoesNotFitIsTheLeast) {
  for (const double number :
       {2147483648.0, -2147483649.0, 1e300, -1e300, std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(INT32_MIN, truncateToInt32(number));
  }
}

TEST(Int32, WrapsAround) {
  EXPECT_EQ(INT32_MIN, wrappedSum(INT32_MAX, 1));
  EXPECT_EQ(-5, wrappedSum(-2, -3));
  EXPECT_EQ(-2, wrappedProduct(INT32_MAX, 2));
  EXPECT_EQ(-15, wrappedProduct(-3, 5));
}

}  // namespace
