#include "platform/jpeg/exif_shedding.h"

#include <gmock/gmock.h>

#include "platform/jpeg/exif_dimensions.h"
#include "tests/support/jpeg_media.h"

namespace {

class ExifShedding : public testing::TestWithParam<bool> {
 protected:
  ExifRecipe recipe() const {
    return {.bigEndian = GetParam(),
            .orientation = 6,
            .gps = true,
            .makerNoteBytes = 3001,
            .thumbnail = true};
  }
};

INSTANTIATE_TEST_SUITE_P(ByteOrders, ExifShedding, testing::Bool());

bool contains(const Bytes& whole, std::string_view part) {
  return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

TEST_P(ExifShedding, AThumbnailGoesAndNothingElseMoves) {
  Bytes exif = makeExif(recipe(), 4032, 3024);
  ExifRecipe without = recipe();
  without.thumbnail = false;
  EXPECT_TRUE(dropExifThumbnail(&exif));
  EXPECT_EQ(exif, makeExif(without, 4032, 3024));
  EXPECT_FALSE(dropExifThumbnail(&exif));
}

TEST_P(ExifShedding, AThumbnailGoesWithThePaddingBehindIt) {
  Bytes exif = makeExif(recipe(), 4032, 3024);
  exif.resize(exif.size() + 5000);
  ExifRecipe without = recipe();
  without.thumbnail = false;
  EXPECT_TRUE(dropExifThumbnail(&exif));
  EXPECT_EQ(exif, makeExif(without, 4032, 3024));
}

TEST_P(ExifShedding, AThumbnailBeforeSomethingElseStays) {
  Bytes exif = makeExif(recipe(), 4032, 3024);
  exif.insert(exif.end(), {'m', 'o', 'r', 'e'});
  const Bytes before = exif;
  EXPECT_FALSE(dropExifThumbnail(&exif));
  EXPECT_EQ(exif, before);
}

TEST_P(ExifShedding, AMakerNoteGoesAndTheOtherFieldsStay) {
  Bytes exif = makeExif(recipe(), 4032, 3024);
  ExifRecipe without = recipe();
  without.makerNoteBytes = 0;
  without.thumbnail = false;
  EXPECT_TRUE(dropExifMakerNote(&exif));
  EXPECT_EQ(exif.size(), makeExif(without, 4032, 3024).size());
  EXPECT_FALSE(contains(exif, "TESTNOTE"));
  for (const char* text : {"Tarn", "Test camera", "2020:02:03 04:05:06"}) {
    EXPECT_TRUE(contains(exif, text)) << text;
  }
  EXPECT_TRUE(setExifDimensions(exif.data(), exif.size(), 1008, 752));
  EXPECT_FALSE(dropExifMakerNote(&exif));
}

TEST_P(ExifShedding, EveryTruncationIsSurvived) {
  const Bytes whole = makeExif(recipe(), 4032, 3024);
  for (size_t size = 0; size < whole.size(); size += size < 1000 ? 1 : 61) {
    Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    cut.shrink_to_fit();
    dropExifThumbnail(&cut);
    dropExifMakerNote(&cut);
    EXPECT_LE(cut.size(), size);
  }
}

TEST_P(ExifShedding, EveryHostileByteIsSurvived) {
  const Bytes whole = makeExif(recipe(), 4032, 3024);
  for (size_t at = 0; at < 700; ++at) {
    for (const uint8_t value : std::initializer_list<uint8_t>{0x00, 0x08, 0x7F, 0xFF}) {
      Bytes hostile = whole;
      hostile[at] = value;
      dropExifThumbnail(&hostile);
      dropExifMakerNote(&hostile);
      ASSERT_LE(hostile.size(), whole.size());
    }
  }
}

// Each of a thousand entries points to the directory that they stand in.
TEST(ExifSheddingBounds, DirectoriesThatPointInCirclesEnd) {
  Bytes exif = {'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 0xE8, 0x03};
  for (int i = 0; i < 1000; ++i) {
    exif.insert(exif.end(), {0x69, 0x87, 4, 0, 1, 0, 0, 0, 8, 0, 0, 0});
  }
  exif.resize(exif.size() + 4);
  const Bytes before = exif;
  EXPECT_FALSE(dropExifThumbnail(&exif));
  EXPECT_FALSE(dropExifMakerNote(&exif));
  EXPECT_EQ(exif, before);
}

TEST(ExifSheddingBounds, WhatIsNoExifIsLeftAlone) {
  Bytes text = {'t', 'e', 'x', 't'};
  EXPECT_FALSE(dropExifThumbnail(&text));
  EXPECT_FALSE(dropExifMakerNote(&text));
  EXPECT_EQ(text.size(), 4u);
}

}  // namespace
