#include "client/files/jpeg_file.h"

#include <gtest/gtest.h>

#include "tests/support/jpeg_media.h"
#include "tests/support/temp_dir.h"

namespace {

class JpegFileTest : public testing::Test {
 protected:
  bool isWhole(const Bytes& file) {
    EXPECT_TRUE(writeBytes(dir / "a.jpg", file));
    return isWholeJpeg(dir / "a.jpg");
  }

  const TempDir dir;
};

Bytes picture() {
  return makeJpeg({.exif = ExifRecipe{.thumbnail = true}});
}

Bytes cut(const Bytes& file, size_t sizeBytes) {
  return Bytes(file.begin(), file.begin() + static_cast<ptrdiff_t>(sizeBytes));
}

TEST_F(JpegFileTest, PicturesOfEveryCodingAreWhole) {
  EXPECT_TRUE(isWhole(picture()));
  EXPECT_TRUE(isWhole(makeJpeg({.content = Content::Noise, .progressive = true})));
  EXPECT_TRUE(isWhole(makeJpeg({.content = Content::Noise, .arithmetic = true})));
  EXPECT_TRUE(isWhole(makeJpeg({.content = Content::Noise, .separateScans = true})));
  EXPECT_TRUE(isWhole(makeJpeg({.content = Content::Noise, .restartRows = 1})));
}

TEST_F(JpegFileTest, WhatFollowsThePictureIsNotLookedAt) {
  for (const Bytes& more : {Bytes(4096, 0), Bytes{0x0a}, Bytes{'f', 't', 'y', 'p', 0xff}}) {
    Bytes file = picture();
    file.insert(file.end(), more.begin(), more.end());
    EXPECT_TRUE(isWhole(file));
  }
}

// The thumbnail's end is not the picture's.
TEST_F(JpegFileTest, APictureThatBreaksOffAnywhereIsNotWhole) {
  const Bytes whole = picture();
  for (size_t length = 0; length < whole.size(); length += length + 40 < whole.size() ? 31 : 1) {
    EXPECT_FALSE(isWhole(cut(whole, length))) << length;
  }
}

TEST_F(JpegFileTest, WhatIsNoPictureIsNotWhole) {
  EXPECT_FALSE(isWhole({0xff, 0xd8, 0xff, 0xd9}));
  EXPECT_FALSE(isWhole({'n', 'o', 0xff, 0xda, 0xff, 0xd9}));
  EXPECT_FALSE(isWhole({0xff, 0xd8, 'n', 'o', 0xff, 0xda, 0, 2, 0xff, 0xd9}));
  EXPECT_FALSE(isWholeJpeg(dir / "none.jpg"));
}

}  // namespace
