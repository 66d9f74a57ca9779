#include "client/units/byte_size.h"

#include <gtest/gtest.h>

namespace {

TEST(ByteSize, ReadsCountsWithAndWithoutUnits) {
  const std::pair<const char*, int32_t> cases[] = {{"1", 1},
                                                   {"300000", 300000},
                                                   {"300k", 300000},
                                                   {"300K", 300000},
                                                   {"300kB", 300000},
                                                   {"1.5M", 1500000},
                                                   {"64Ki", 65536},
                                                   {"64KiB", 65536},
                                                   {"1Mi", 1048576},
                                                   {"12b", 12},
                                                   {"2147483647", 2147483647},
                                                   {"2G", 2000000000},
                                                   {"1Gi", 1073741824},
                                                   {".5k", 500},
                                                   {"1.9", 1}};
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(bytes, parseByteSize(text)) << text;
  }
}

TEST(ByteSize, RefusesEverythingElse) {
  for (const char* text : {"", "k", "0", "-5", "+5", "3x", "3 k", "1e6", "0x10", "1.2.3",
                           "2147483648", "3G", "0.5", "nan", "inf", "300kk", "."}) {
    EXPECT_EQ(std::nullopt, parseByteSize(text)) << text;
  }
}

TEST(ByteSize, WritesThreeDigitsAtMost) {
  const std::pair<int64_t, const char*> cases[] = {
      {0, "0 B"},          {999, "999 B"},         {1000, "1.0 kB"},          {9949, "9.9 kB"},
      {9950, "10 kB"},     {287345, "287 kB"},     {999499, "999 kB"},        {999500, "1.0 MB"},
      {1500000, "1.5 MB"}, {2000000000, "2.0 GB"}, {5000000000000, "5000 GB"}};
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(text, formatByteSize(bytes)) << bytes;
  }
}

}  // namespace
