// One photo, from the source's bytes to the result's: what is promised of size, picture and
// metadata.
#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "fit/metadata/exif_fields.h"
#include "fit/photo/fit_photo.h"
#include "platform/jpeg/jpeg_metadata.h"
#include "tests/support/jpeg_media.h"

namespace {

using testing::HasSubstr;
using testing::Not;

JpegRecipe photoRecipe() {
  JpegRecipe recipe;
  recipe.width = 400;
  recipe.height = 300;
  recipe.content = Content::Noise;
  recipe.exif = ExifRecipe{.orientation = 6, .gps = true, .makerNoteBytes = 500, .thumbnail = true};
  recipe.xmp = "<x exif:GPSLatitude='60,8N' tiff:Orientation=\"6\"/>";
  recipe.iptcCaption = "a caption";
  recipe.comment = "a comment";
  recipe.iccBytes = 400;
  return recipe;
}

struct Outcome {
  bool ok = false;
  FittedPhoto photo;
  FitFailure failure;
  std::vector<double> progress;
};

Outcome fit(const Bytes& file, PhotoRequest request) {
  Outcome outcome;
  outcome.ok = fitPhoto(
      file, request, nullptr, [&](double share) { outcome.progress.push_back(share); },
      &outcome.photo, &outcome.failure);
  return outcome;
}

Outcome fit(const Bytes& file, int64_t maxBytes, KeepMetadata keep = KeepMetadata::All) {
  PhotoRequest request;
  request.maxBytes = maxBytes;
  request.keep = keep;
  return fit(file, request);
}

std::string textOf(const std::vector<uint8_t>& bytes) {
  return {bytes.begin(), bytes.end()};
}

// The payload of the Exif segment.
std::string exifOf(const std::vector<uint8_t>& file) {
  JpegHeaderReader reader;
  reader.feed(file.data(), file.size());
  for (const JpegSegment& segment : reader.segments()) {
    if (isExif(segment)) return textOf(segment.payload);
  }
  return "";
}

PhotoFacts factsOf(const std::vector<uint8_t>& file) {
  PhotoFacts facts;
  FitFailure failure;
  EXPECT_TRUE(inspectPhoto(file, nullptr, &facts, &failure)) << failure.message;
  return facts;
}

TEST(FitPhotoTest, WhatFitsStaysByteForByte) {
  const Bytes file = makeJpeg(photoRecipe());
  const Outcome outcome = fit(file, static_cast<int64_t>(file.size()));
  ASSERT_TRUE(outcome.ok);
  EXPECT_EQ(outcome.photo.file, file);
  EXPECT_EQ(outcome.photo.encodes, 0);
  EXPECT_EQ(outcome.photo.size, (PictureSize{300, 400}));  // upright
}

TEST(FitPhotoTest, EveryBudgetIsKeptAndTheResultIsUpright) {
  const Bytes file = makeJpeg(photoRecipe());
  for (const int64_t budget : {3000, 6000, 12000, 30000}) {
    const Outcome outcome = fit(file, budget);
    ASSERT_TRUE(outcome.ok) << outcome.failure.message;
    EXPECT_LE(outcome.photo.file.size(), static_cast<size_t>(budget));
    const PhotoFacts facts = factsOf(outcome.photo.file);
    EXPECT_EQ(facts.orientation, 1);
    EXPECT_EQ(facts.size, outcome.photo.size);
    EXPECT_LT(facts.size.width, facts.size.height);
    EXPECT_FALSE(decodePixels(outcome.photo.file).empty());
    EXPECT_TRUE(std::is_sorted(outcome.progress.begin(), outcome.progress.end()));
  }
}

TEST(FitPhotoTest, MetadataGoesBeforeThePictureDoes) {
  JpegRecipe recipe = photoRecipe();
  recipe.exif->makerNoteBytes = 20000;
  const Bytes file = makeJpeg(recipe);
  const Outcome outcome = fit(file, static_cast<int64_t>(file.size()) - 15000);
  ASSERT_TRUE(outcome.ok);
  EXPECT_EQ(outcome.photo.encodes, 0);
  EXPECT_EQ(decodePixels(outcome.photo.file), decodePixels(file));
  EXPECT_THAT(textOf(outcome.photo.file), Not(HasSubstr("TESTNOTE")));
  EXPECT_EQ(factsOf(outcome.photo.file).orientation, 6);  // its picture was not turned
}

TEST(FitPhotoTest, NoLocationLeavesNothingThatTellsAPlace) {
  JpegRecipe recipe = photoRecipe();
  const Bytes file = makeJpeg(recipe);
  recipe.exif->gps = false;
  for (const int64_t budget : {static_cast<int64_t>(file.size()) * 2, int64_t{30000}}) {
    const Outcome outcome = fit(file, budget, KeepMetadata::NoLocation);
    ASSERT_TRUE(outcome.ok);
    const std::string text = textOf(outcome.photo.file);
    for (const char* trace :
         {"TESTNOTE", "GPSLatitude", "a caption", "a comment", "http://ns.adobe"}) {
      EXPECT_THAT(text, Not(HasSubstr(trace))) << trace;
    }
    EXPECT_EQ(exifOf(outcome.photo.file).find("\x25\x88"), text.npos);  // the position's directory
    EXPECT_NE(exifOf(file).find("\x25\x88"), text.npos);
    EXPECT_THAT(text, HasSubstr("Exif"));
    EXPECT_THAT(text, HasSubstr("ICC_PROFILE"));
    EXPECT_EQ(factsOf(outcome.photo.file).orientation, budget == 30000 ? 1 : 6);
  }
}

TEST(FitPhotoTest, NoneLeavesTheColoursAndTheOrientation) {
  const Bytes file = makeJpeg(photoRecipe());
  Bytes withTrailer = file;
  const std::string trailer = "a motion picture with its own place";
  withTrailer.insert(withTrailer.end(), trailer.begin(), trailer.end());
  const Outcome outcome = fit(withTrailer, 1 << 20, KeepMetadata::None);
  ASSERT_TRUE(outcome.ok);
  const std::string text = textOf(outcome.photo.file);
  for (const char* trace : {"TESTNOTE", "GPS", "caption", "comment", "motion"}) {
    EXPECT_THAT(text, Not(HasSubstr(trace))) << trace;
  }
  EXPECT_THAT(text, HasSubstr("ICC_PROFILE"));
  EXPECT_EQ(factsOf(outcome.photo.file).orientation, 6);
  EXPECT_EQ(decodePixels(outcome.photo.file), decodePixels(file));
}

TEST(FitPhotoTest, SidesAreLimitedUprightAndNeverEnlarged) {
  const Bytes file = makeJpeg(photoRecipe());
  PhotoRequest request;
  request.maxBytes = 10 << 20;
  request.maxWidth = 150;
  const Outcome narrow = fit(file, request);
  ASSERT_TRUE(narrow.ok);
  EXPECT_EQ(narrow.photo.size, (PictureSize{150, 200}));
  request.maxWidth = 5000;
  EXPECT_EQ(fit(file, request).photo.file, file);
}

TEST(FitPhotoTest, TheQualityFloorIsKept) {
  const Bytes file = makeJpeg({.width = 800, .height = 600, .content = Content::Noise});
  PhotoRequest request;
  request.maxBytes = 20000;
  request.qualityFloor = 95;
  const Outcome outcome = fit(file, request);
  ASSERT_TRUE(outcome.ok);
  const std::string text = textOf(outcome.photo.file);
  const size_t tables = text.find("\xFF\xDB");
  ASSERT_LT(tables + 5, text.size());
  EXPECT_LE(text[tables + 5], 2);  // the first step of the first table; 16 at quality 50
}

TEST(FitPhotoTest, WhatCannotBeSaysHowSmallItCan) {
  const Bytes file = makeJpeg(photoRecipe());
  const Outcome outcome = fit(file, 200);
  ASSERT_FALSE(outcome.ok);
  EXPECT_EQ(outcome.failure.name, "LimitTooSmall");
  EXPECT_THAT(outcome.failure.message, HasSubstr(std::to_string(outcome.failure.smallestBytes)));
  EXPECT_TRUE(fit(file, outcome.failure.smallestBytes).ok);
}

// Metadata that such a limit would have room for gives way to the picture.
TEST(FitPhotoTest, TheSmallestIsReachedWithMetadataOfAnySize) {
  for (const size_t length : {5, 20, 40, 60, 200}) {
    JpegRecipe recipe;
    recipe.width = 640;
    recipe.height = 480;
    recipe.content = Content::Noise;
    recipe.comment = std::string(length, 'c');
    const Bytes file = makeJpeg(recipe);
    const Outcome refused = fit(file, 100);
    ASSERT_EQ(refused.failure.name, "LimitTooSmall");
    EXPECT_TRUE(fit(file, refused.failure.smallestBytes).ok) << length;
  }
}

TEST(FitPhotoTest, WhatIsNoWholePhotoIsNamed) {
  Bytes cut = makeJpeg(photoRecipe());
  cut.resize(cut.size() - cut.size() / 3);
  EXPECT_EQ(fit(cut, 5000).failure.name, "Damaged");
  EXPECT_EQ(fit(cut, 10 << 20).failure.name, "Damaged");
  EXPECT_EQ(fit({}, 5000).failure.name, "NotAPhoto");
  EXPECT_EQ(fit({0xFF, 0xD8}, 5000).failure.name, "Damaged");
  const std::string jpegXl("\xFF\x0A.........", 11);
  const Outcome other = fit(Bytes(jpegXl.begin(), jpegXl.end()), 5000);
  EXPECT_EQ(other.failure.name, "NotSupported");
  EXPECT_THAT(other.failure.message, HasSubstr("jpeg-xl"));
  const std::string movie(
      "\0\0\0\x18"
      "ftypisom....",
      16);
  EXPECT_EQ(fit(Bytes(movie.begin(), movie.end()), 5000).failure.name, "NotAPhoto");
}

TEST(FitPhotoTest, AnyKindOfPictureComesOut) {
  for (const Colours colours : {Colours::YCbCr, Colours::Rgb, Colours::CmykInverted}) {
    for (const bool progressive : {false, true}) {
      JpegRecipe recipe = photoRecipe();
      recipe.colours = colours;
      recipe.progressive = progressive;
      recipe.width = 401;
      recipe.height = 303;
      const Outcome outcome = fit(makeJpeg(recipe), 9000);
      ASSERT_TRUE(outcome.ok) << outcome.failure.message;
      EXPECT_FALSE(decodePixels(outcome.photo.file).empty());
      const bool keepsProfile = colours != Colours::CmykInverted;
      EXPECT_EQ(textOf(outcome.photo.file).find("ICC_PROFILE") != std::string::npos, keepsProfile);
    }
  }
  const Outcome gray = fit(makeJpeg({.width = 500,
                                     .height = 400,
                                     .subsampling = Subsampling::Gray,
                                     .content = Content::Noise}),
                           9000);
  EXPECT_TRUE(gray.ok);
}

TEST(ExifFieldsTest, TheShortestPayloadTellsItsOrientation) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    std::vector<uint8_t> payload = exifOfOrientation(orientation);
    EXPECT_EQ(exifOrientation(payload), orientation);
    setExifUpright(&payload);
    EXPECT_EQ(exifOrientation(payload), 1);
  }
  EXPECT_EQ(exifOrientation({}), 1);
}

}  // namespace
