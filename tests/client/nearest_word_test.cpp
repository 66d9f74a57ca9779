#include "client/commands/nearest_word.h"

#include <gtest/gtest.h>

namespace {

const std::vector<std::string> kWords = {"fit", "info", "resize-image", "resize-movie"};

TEST(NearestWord, IsTheOneWithTheFewestChanges) {
  EXPECT_EQ(nearestWord("resize-imag", kWords), "resize-image");
  EXPECT_EQ(nearestWord("resize_movie", kWords), "resize-movie");
  EXPECT_EQ(nearestWord("inof", kWords), "info");
  EXPECT_EQ(nearestWord("fits", kWords), "fit");
}

TEST(NearestWord, IsTheFirstThatBeginsSo) {
  EXPECT_EQ(nearestWord("resize", kWords), "resize-image");
  EXPECT_EQ(nearestWord("resize-m", kWords), "resize-movie");
}

TEST(NearestWord, IsNoneThatIsFar) {
  EXPECT_EQ(nearestWord("shrink", kWords), "");
  EXPECT_EQ(nearestWord("", kWords), "");
  EXPECT_EQ(nearestWord("x", {}), "");
}

TEST(NearestWord, IsAskedFor) {
  EXPECT_EQ(didYouMean("inof", kWords), ": did you mean info?");
  EXPECT_EQ(didYouMean("shrink", kWords), "");
}

}  // namespace
