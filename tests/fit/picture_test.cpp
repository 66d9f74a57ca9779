// Decoded pictures: read, turned, compared, written.
#include <gtest/gtest.h>

#include "fit/picture/jpeg_reading.h"
#include "fit/picture/jpeg_writing.h"
#include "fit/picture/similarity.h"
#include "fit/picture/turning.h"
#include "tests/support/jpeg_media.h"

namespace {

Picture grayPicture(int width, int height) {
  Picture picture;
  picture.size = {width, height};
  Plane& plane = picture.planes.emplace_back(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      plane.row(y)[x] = static_cast<uint8_t>((x * 7 + y * 13 + x * y) % 256);
    }
  }
  plane.pad();
  return picture;
}

TEST(TurningTest, EachOrientationPutsEachSampleWhereExifSays) {
  const Picture source = grayPicture(70, 37);
  const Plane& from = source.planes[0];
  for (int orientation = 1; orientation <= 8; ++orientation) {
    Picture turned = source;
    turnUpright(orientation, &turned);
    ASSERT_EQ(turned.size, turnedSize(source.size, orientation));
    int wrong = 0;
    for (int y = 0; y < turned.size.height; ++y) {
      for (int x = 0; x < turned.size.width; ++x) {
        const int right = from.width - 1;
        const int bottom = from.height - 1;
        const int places[8][2] = {{x, y}, {right - x, y},  {right - x, bottom - y}, {x, bottom - y},
                                  {y, x}, {y, bottom - x}, {right - y, bottom - x}, {right - y, x}};
        const int* place = places[orientation - 1];
        wrong += turned.planes[0].row(y)[x] != from.row(place[1])[place[0]];
      }
    }
    EXPECT_EQ(wrong, 0) << orientation;
  }
}

TEST(SimilarityTest, IsOneOfTheSameAndFallsWithEveryError) {
  const Picture picture = grayPicture(64, 48);
  EXPECT_DOUBLE_EQ(similarity(picture.planes[0], picture.planes[0]), 1);
  double before = 1;
  for (const int amount : {2, 8, 32, 100}) {
    Plane noisy = picture.planes[0];
    for (size_t i = 0; i < noisy.samples.size(); ++i) {
      noisy.samples[i] = static_cast<uint8_t>(noisy.samples[i] + (i * 31 % 5 - 2) * amount / 2);
    }
    const double now = similarity(picture.planes[0], noisy);
    EXPECT_LT(now, before) << amount;
    before = now;
  }
  EXPECT_DOUBLE_EQ(similarity(Plane(7, 7), Plane(7, 7)), 1);
}

TEST(JpegWritingTest, AnySizeComesBackAsItWas) {
  for (const PictureSize size : {PictureSize{1, 1}, {16, 16}, {17, 33}, {640, 479}}) {
    Picture picture;
    picture.size = size;
    for (const auto& [width, height] : {std::pair{size.width, size.height},
                                        {(size.width + 1) / 2, (size.height + 1) / 2},
                                        {(size.width + 1) / 2, (size.height + 1) / 2}}) {
      Plane& plane = picture.planes.emplace_back(width, height);
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          plane.row(y)[x] = static_cast<uint8_t>(60 + (x + y) / 8 % 100);
        }
      }
      plane.pad();
    }
    std::vector<uint8_t> file;
    std::string error;
    ASSERT_TRUE(writeJpeg(picture, coarsenessOfQuality(90), &file, &error)) << error;
    Picture read;
    ASSERT_TRUE(readJpeg(file, &read, &error)) << error;
    ASSERT_EQ(read.size, size);
    ASSERT_EQ(read.planes.size(), 3u);
    EXPECT_GT(similarity(picture.planes[0], read.planes[0]), 0.95);
  }
}

TEST(JpegWritingTest, CoarserIsSmallerAndQualitiesAreLibjpegs) {
  const Picture picture = grayPicture(200, 200);
  size_t before = SIZE_MAX;
  for (const int quality : {95, 75, 50, 25, 10}) {
    std::vector<uint8_t> file;
    std::string error;
    ASSERT_TRUE(writeJpeg(picture, coarsenessOfQuality(quality), &file, &error));
    EXPECT_LT(file.size(), before) << quality;
    EXPECT_EQ(qualityOfCoarseness(coarsenessOfQuality(quality)), quality);
    before = file.size();
  }
}

TEST(JpegWritingTest, AProgressiveOneIsTheSamePicture) {
  const Picture picture = grayPicture(600, 400);
  std::vector<uint8_t> file;
  std::vector<uint8_t> progressive;
  std::string error;
  ASSERT_TRUE(writeJpeg(picture, 0.5, &file, &error));
  ASSERT_TRUE(makeProgressive(file, &progressive, &error));
  EXPECT_NE(progressive, file);
  Picture before;
  Picture after;
  ASSERT_TRUE(readJpeg(file, &before, &error));
  ASSERT_TRUE(readJpeg(progressive, &after, &error));
  EXPECT_EQ(before.planes[0].samples, after.planes[0].samples);
  EXPECT_FALSE(makeProgressive({0xFF, 0xD8, 0xFF}, &progressive, &error));
}

TEST(JpegReadingTest, EveryKindOfColourIsRead) {
  for (const Colours colours : {Colours::YCbCr, Colours::Rgb, Colours::CmykInverted,
                                Colours::CmykPlain, Colours::YcckInverted}) {
    JpegRecipe recipe;
    recipe.colours = colours;
    recipe.subsampling = Subsampling::S444;
    const Bytes file = makeJpeg(recipe);
    Picture picture;
    std::string error;
    ASSERT_TRUE(readJpeg(file, &picture, &error)) << static_cast<int>(colours) << error;
    EXPECT_EQ(picture.planes.size(), 3u);
    EXPECT_EQ(picture.size, (PictureSize{64, 48}));
  }
}

TEST(JpegReadingTest, APictureThatBreaksOffIsNone) {
  Bytes file = makeJpeg({.width = 300, .height = 200, .content = Content::Noise});
  file.resize(file.size() / 2);
  Picture picture;
  std::string error;
  EXPECT_FALSE(readJpeg(file, &picture, &error));
  EXPECT_FALSE(error.empty());
}

}  // namespace
