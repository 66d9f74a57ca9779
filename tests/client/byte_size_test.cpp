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
                                                   {"1.9", 1},
                                                   {"300 KB", 300000},
                                                   {"300  kib", 307200},
                                                   {"0.3M", 300000},
                                                   {"1e5", 100000},
                                                   {"1.5E3k", 1500000}};
  for (const auto& [text, expected] : cases) {
    int32_t bytes = 0;
    std::string error;
    EXPECT_TRUE(parseByteSize(text, &bytes, &error)) << text;
    EXPECT_EQ(bytes, expected) << text;
    EXPECT_EQ(error, "");
  }
}

std::string fault(const std::string& text) {
  int32_t bytes = 0;
  std::string error;
  EXPECT_FALSE(parseByteSize(text, &bytes, &error)) << text;
  return error;
}

TEST(ByteSize, SaysWhatIsWrong) {
  for (const std::string text : {"", "k", "-5", "+5", "3x", "0x10", "1.2.3", "nan", "inf", "300kk",
                                 ".", "1e", "3k ", "3 k B", " 3"}) {
    EXPECT_EQ(fault(text), "\"" + text + "\" is not a size: write 300k or 1.5M");
  }
  for (const std::string text : {"2147483648", "3G", "2Gi", "1e400"}) {
    EXPECT_EQ(fault(text), text + " is more than 2,147,483,647 bytes, the most the service takes");
  }
  for (const std::string text : {"0", "0.5", "1e-9k"}) {
    EXPECT_EQ(fault(text), text + " is less than a byte");
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
