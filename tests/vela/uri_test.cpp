#include "platform/vela/uri.h"

#include <gtest/gtest.h>

using vela::Uri;

TEST(UriTest, SplitsServiceCategoryAndMethod) {
  const auto uri = Uri::parse("tarn://com.tarn.power/com/tarn/power/activityStart");
  ASSERT_TRUE(uri);
  EXPECT_EQ(uri->service, "com.tarn.power");
  EXPECT_EQ(uri->category, "/com/tarn/power");
  EXPECT_EQ(uri->method, "activityStart");
}

TEST(UriTest, NoCategoryIsTheRoot) {
  const auto uri = Uri::parse("tarn://com.example.vela/echo");
  ASSERT_TRUE(uri);
  EXPECT_EQ(uri->category, "/");
  EXPECT_EQ(uri->method, "echo");
}

TEST(UriTest, RefusesWhatIsNoAddress) {
  for (const char* text :
       {"", "tarn://", "tarn:///", "tarn://a.b", "tarn://a.b/", "tarn:///x/y", "http://a.b/c",
        "tarn://nodot/c", "tarn://a.b///c", "tarn://a.b/x//c", "tarn://a.b/x/1c",
        "tarn://a.b/x y/c", "tarn://:1.2/c", "tarn://a-b.c/d", "TARN://a.b/c"}) {
    EXPECT_FALSE(Uri::parse(text)) << text;
  }
}
