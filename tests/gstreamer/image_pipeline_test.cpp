// The metadata pair among real decoders and encoders, from file to file.
#include "tests/gstreamer/image_pipeline.h"

#include <gmock/gmock.h>
#include <malloc.h>

#include <filesystem>
#include <memory>

#include "platform/jpeg/jpeg_segments.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using Outcome = ImagePipeline::Outcome;
using testing::ElementsAre;

class ImagePipelineTest : public testing::Test {
 protected:
  Outcome encode(const Bytes& source, int width, int height,
                 const ImagePipeline::Options& options = {}) {
    EXPECT_TRUE(writeBytes(inFile, source));
    pipeline = std::make_unique<ImagePipeline>(inFile, outFile, options);
    return pipeline->encode(width, height, 85);
  }
  Bytes output() const { return readBytes(outFile); }

  const TempDir dir;
  const std::string inFile = dir / "in.jpg";
  const std::string outFile = dir / "out.jpg";
  std::unique_ptr<ImagePipeline> pipeline;
};

JpegHeaderReader read(const Bytes& bytes) {
  JpegHeaderReader reader;
  EXPECT_EQ(reader.feed(bytes.data(), bytes.size()), JpegHeaderReader::Status::Complete);
  return reader;
}

std::vector<Bytes> payloadsOf(const Bytes& jpeg) {
  const JpegHeaderReader reader = read(jpeg);
  std::vector<Bytes> payloads;
  for (const JpegSegment& segment : reader.segments()) {
    payloads.push_back(segment.payload);
  }
  return payloads;
}

std::pair<uint32_t, uint32_t> sizeOf(const Bytes& jpeg) {
  const JpegHeaderReader reader = read(jpeg);
  return {reader.width(), reader.height()};
}

JpegRecipe richRecipe() {
  JpegRecipe recipe{.width = 320, .height = 240, .jfif = false};
  recipe.exif = ExifRecipe{.orientation = 6, .gps = true};
  recipe.xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
  recipe.iptcCaption = "caption";
  recipe.iccBytes = 150'000;
  recipe.comment = "comment";
  return recipe;
}

// The same file with another size in its frame header.
Bytes claimSize(Bytes jpeg, uint16_t width, uint16_t height) {
  const uint8_t frame[] = {0xFF, 0xC0, 0x00, 0x11, 8};
  const auto found = std::search(jpeg.begin(), jpeg.end(), std::begin(frame), std::end(frame));
  EXPECT_NE(found, jpeg.end());
  found[5] = static_cast<uint8_t>(height >> 8);
  found[6] = static_cast<uint8_t>(height);
  found[7] = static_cast<uint8_t>(width >> 8);
  found[8] = static_cast<uint8_t>(width);
  return jpeg;
}

TEST_F(ImagePipelineTest, EverySegmentSurvivesAndTheTwoDimensionsAreTheNewOnes) {
  for (bool bigEndian : {false, true}) {
    JpegRecipe recipe = richRecipe();
    recipe.width = 640;
    recipe.height = 480;
    recipe.content = Content::Noise;
    recipe.exif = ExifRecipe{.bigEndian = bigEndian,
                             .orientation = 6,
                             .gps = true,
                             .makerNoteBytes = 4000,
                             .thumbnail = true};
    recipe.iccBytes = 70'000;
    ASSERT_EQ(encode(makeJpeg(recipe), 624, 464), Outcome::End);
    std::vector<Bytes> wanted = payloadsOf(makeJpeg(recipe));
    wanted[0] = makeExif(*recipe.exif, 624, 464);
    EXPECT_EQ(payloadsOf(output()), wanted);
    EXPECT_EQ(sizeOf(output()), std::pair(624u, 464u));
  }
}

TEST_F(ImagePipelineTest, ASmallPictureShedsWhatItCanDoWithoutAndTellsOnce) {
  JpegRecipe recipe = richRecipe();
  recipe.iccBytes = 200;
  recipe.exif =
      ExifRecipe{.orientation = 6, .gps = true, .makerNoteBytes = 40'000, .thumbnail = true};
  LogCapture log;
  ASSERT_EQ(encode(makeJpeg(recipe), 160, 112), Outcome::End);
  ASSERT_EQ(pipeline->encode(160, 112, 70), Outcome::End);
  EXPECT_LT(output().size(), 10'000u);
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE),
              ElementsAre("metadata larger than the picture, left out: thumbnail maker note"));
}

TEST_F(ImagePipelineTest, ThePictureIsWhatThePipelineGivesWithoutMetadata) {
  const JpegRecipe recipe = richRecipe();
  ASSERT_EQ(encode(makeJpeg(recipe), 160, 112, {.metadata = false}), Outcome::End);
  const Bytes plain = output();
  ASSERT_EQ(encode(makeJpeg(recipe), 160, 112), Outcome::End);
  const Bytes ours = output();
  const size_t picture = plain.size() - 20;  // without SOI and JFIF
  ASSERT_GT(ours.size(), picture);
  EXPECT_TRUE(std::equal(plain.end() - static_cast<ptrdiff_t>(picture), plain.end(),
                         ours.end() - static_cast<ptrdiff_t>(picture)));
}

TEST_F(ImagePipelineTest, ADensityWithoutExifSurvives) {
  ASSERT_EQ(encode(makeJpeg({.density = 240}), 32, 32), Outcome::End);
  EXPECT_EQ(payloadsOf(output()), payloadsOf(makeJpeg({.density = 240})));
}

TEST_F(ImagePipelineTest, ExifCanBeLeftOut) {
  ASSERT_EQ(encode(makeJpeg(richRecipe()), 160, 112, {.exif = false}), Outcome::End);
  JpegRecipe without = richRecipe();
  without.exif.reset();
  const std::vector<Bytes> wanted = payloadsOf(makeJpeg(without));
  const std::vector<Bytes> found = payloadsOf(output());
  ASSERT_EQ(found.size(), wanted.size() + 1);  // the encoder's JFIF first
  EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), found.begin() + 1));
}

TEST_F(ImagePipelineTest, TheMetadataPassesTheCropperToo) {
  const JpegRecipe recipe = richRecipe();
  ASSERT_EQ(encode(makeJpeg(recipe), 160, 112, {.crop = 32}), Outcome::End);
  EXPECT_EQ(sizeOf(output()), std::pair(128u, 112u));
  EXPECT_EQ(payloadsOf(output()).front(), makeExif(*recipe.exif, 128, 112));
}

TEST_F(ImagePipelineTest, AllKindsOfPicturesPass) {
  for (Subsampling subsampling :
       {Subsampling::Gray, Subsampling::S444, Subsampling::S422, Subsampling::S420}) {
    for (bool progressive : {false, true}) {
      JpegRecipe recipe{.width = 101,
                        .height = 67,
                        .subsampling = subsampling,
                        .content = Content::Noise,
                        .progressive = progressive,
                        .restartRows = progressive ? 0 : 1,
                        .jfif = false};
      recipe.exif = ExifRecipe{};
      ASSERT_EQ(encode(makeJpeg(recipe), 112, 80), Outcome::End) << static_cast<int>(subsampling);
      EXPECT_EQ(sizeOf(output()), std::pair(112u, 80u));
      EXPECT_EQ(payloadsOf(output()).front(), makeExif({}, 112, 80));
    }
  }
}

TEST_F(ImagePipelineTest, APictureOfSeveralBlocksPasses) {
  JpegRecipe recipe = richRecipe();
  recipe.width = 2400;
  recipe.height = 1600;
  recipe.content = Content::Noise;
  const Bytes source = makeJpeg(recipe);
  ASSERT_GT(source.size(), size_t{2} << 20);
  ASSERT_EQ(encode(source, 160, 112), Outcome::End);
  EXPECT_EQ(payloadsOf(output()).front(), makeExif(*recipe.exif, 160, 112));
}

TEST_F(ImagePipelineTest, AFileOfTwoPicturesGivesTheFirst) {
  JpegRecipe recipe = richRecipe();
  const Bytes first = makeJpeg(recipe);
  ASSERT_EQ(encode(first, 160, 112), Outcome::End);
  const Bytes wanted = output();
  recipe.width = 200;
  recipe.content = Content::Noise;
  ASSERT_EQ(encode(insertBytes(first, first.size(), makeJpeg(recipe)), 160, 112), Outcome::End);
  EXPECT_EQ(output(), wanted);
}

TEST_F(ImagePipelineTest, WhateverFollowsThePictureDoesNotMatter) {
  const Bytes first = makeJpeg(richRecipe());
  ASSERT_EQ(encode(first, 160, 112), Outcome::End);
  const Bytes wanted = output();
  const Bytes trailer = makeIccProfile(3 << 20);
  ASSERT_EQ(encode(insertBytes(first, first.size(), trailer), 160, 112), Outcome::End);
  EXPECT_EQ(output(), wanted);
}

TEST_F(ImagePipelineTest, AFileThatEndsInItsHeaderIsAnError) {
  const Bytes whole = makeJpeg(richRecipe());
  for (size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{100}, size_t{70'000}}) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    ASSERT_EQ(encode(cut, 32, 32), Outcome::Error) << size;
    EXPECT_TRUE(pipeline->failedWith(GST_STREAM_ERROR, GST_STREAM_ERROR_DEMUX)) << size;
  }
}

TEST_F(ImagePipelineTest, AFileThatEndsInItsScanIsAnErrorAndGivesNothing) {
  const Bytes whole = makeJpeg(richRecipe());
  const Bytes cut(whole.begin(), whole.end() - 200);
  ASSERT_EQ(encode(cut, 32, 32), Outcome::Error);
  EXPECT_TRUE(pipeline->failedWith(GST_STREAM_ERROR, GST_STREAM_ERROR_DECODE));
  EXPECT_TRUE(output().empty());
}

TEST_F(ImagePipelineTest, WhatIsNoPictureIsAnError) {
  ASSERT_EQ(encode(Bytes(5000, 'x'), 32, 32), Outcome::Error);
  EXPECT_TRUE(pipeline->failedWith(GST_STREAM_ERROR, GST_STREAM_ERROR_WRONG_TYPE));
}

TEST_F(ImagePipelineTest, AHopelesslyLargePictureIsAnError) {
  const Bytes bomb = claimSize(makeJpeg({.width = 16, .height = 16}), 65500, 65500);
  ASSERT_EQ(encode(bomb, 32, 32), Outcome::Error);
  EXPECT_TRUE(pipeline->failedWith(GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT));
}

TEST_F(ImagePipelineTest, AHopelesslyLargePictureBehindAnUndecodableOneIsAnErrorToo) {
  Bytes first = makeJpeg({.width = 16, .height = 16});
  const Bytes bomb = claimSize(first, 65500, 65500);
  first = claimSize(first, 16, 0);
  EXPECT_EQ(encode(insertBytes(first, first.size(), bomb), 32, 32), Outcome::Error);
}

TEST_F(ImagePipelineTest, EachCycleTakesItsOwnSizeAndQuality) {
  JpegRecipe recipe = richRecipe();
  recipe.content = Content::Noise;
  ASSERT_TRUE(writeBytes(inFile, makeJpeg(recipe)));
  ImagePipeline images(inFile, outFile);
  size_t previousBytes = SIZE_MAX;
  for (int divisor : {1, 2, 4}) {
    for (int quality : {85, 55}) {
      const int width = 320 / divisor;
      const int height = 240 / divisor;
      ASSERT_EQ(images.encode(width, height, quality), Outcome::End);
      EXPECT_EQ(payloadsOf(output()).front(), makeExif(*recipe.exif, width, height));
      EXPECT_LT(output().size(), previousBytes);
      previousBytes = output().size();
    }
  }
}

TEST_F(ImagePipelineTest, APipelineThatFailedWorksAgain) {
  ASSERT_EQ(encode(Bytes(10, 'x'), 32, 32), Outcome::Error);
  ASSERT_TRUE(writeBytes(inFile, makeJpeg(richRecipe())));
  EXPECT_EQ(pipeline->encode(32, 32, 85), Outcome::End);
  EXPECT_EQ(sizeOf(output()), std::pair(32u, 32u));
}

size_t openDescriptors() {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

TEST_F(ImagePipelineTest, ThreeHundredCyclesLeaveNothingBehind) {
  const JpegRecipe recipe = richRecipe();
  ASSERT_TRUE(writeBytes(inFile, makeJpeg(recipe)));
  ImagePipeline images(inFile, outFile);
  size_t descriptors = 0;
  size_t allocatedBytes = 0;
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(images.encode(32 + 16 * (i % 4), 48, 50 + i % 40), Outcome::End) << i;
    if (i == 99) {
      descriptors = openDescriptors();
      allocatedBytes = mallinfo2().uordblks;
    }
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  // 200 cycles that each lost their metadata alone would be 30 MB. (Under a sanitizer both figures
  // are 0, and its own search for leaks takes the place of this.)
  EXPECT_LT(mallinfo2().uordblks, allocatedBytes + 2'000'000);
}

}  // namespace
