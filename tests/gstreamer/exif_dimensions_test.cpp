#include "platform/jpeg/exif_dimensions.h"

#include <gmock/gmock.h>

#include "tests/support/jpeg_media.h"

namespace {

constexpr size_t kTiffAt = 6;
constexpr size_t kMainPointerAt = kTiffAt + 4;

struct Form {
  bool bigEndian;
  bool shortDimensions;
};

class ExifForms : public testing::TestWithParam<Form> {
 protected:
  ExifRecipe recipe() const {
    return {.bigEndian = GetParam().bigEndian,
            .shortDimensions = GetParam().shortDimensions,
            .orientation = 6,
            .gps = true,
            .makerNoteBytes = 333,
            .thumbnail = true};
  }
};

INSTANTIATE_TEST_SUITE_P(AllForms, ExifForms,
                         testing::Values(Form{false, false}, Form{false, true}, Form{true, false},
                                         Form{true, true}),
                         [](const auto& form) {
                           return std::string(form.param.bigEndian ? "BigEndian" : "LittleEndian") +
                                  (form.param.shortDimensions ? "Short" : "Long");
                         });

TEST_P(ExifForms, OnlyTheTwoDimensionsChange) {
  Bytes exif = makeExif(recipe(), 4032, 3024);
  EXPECT_TRUE(setExifDimensions(exif.data(), exif.size(), 1008, 752));
  EXPECT_EQ(exif, makeExif(recipe(), 1008, 752));
}

TEST_P(ExifForms, EveryTruncationIsSurvived) {
  const Bytes whole = makeExif(recipe(), 4032, 3024);
  for (size_t size = 0; size < whole.size(); ++size) {
    // A block of exactly that size, so that a sanitizer sees any step beyond it.
    Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    cut.shrink_to_fit();
    const Bytes before = cut;
    if (!setExifDimensions(cut.data(), cut.size(), 1008, 752)) {
      EXPECT_EQ(cut, before) << size;
    }
  }
}

TEST_P(ExifForms, EveryHostileByteIsSurvived) {
  const Bytes whole = makeExif(recipe(), 4032, 3024);
  for (size_t at = 0; at < whole.size(); ++at) {
    for (uint8_t value : std::initializer_list<uint8_t>{0x00, 0x7F, 0xFF}) {
      Bytes hostile = whole;
      hostile[at] = value;
      const Bytes before = hostile;
      setExifDimensions(hostile.data(), hostile.size(), 1008, 752);
      size_t changed = 0;
      for (size_t i = 0; i < hostile.size(); ++i) {
        changed += hostile[i] != before[i] ? 1 : 0;
      }
      ASSERT_LE(changed, 8u) << at;
    }
  }
}

Bytes littleEndian() {
  return makeExif({}, 4032, 3024);
}

void putU32(Bytes* bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) {
    (*bytes)[at + i] = static_cast<uint8_t>(value >> (8 * i));
  }
}

// The offset in the payload of the little-endian entry with that tag.
size_t entryAt(const Bytes& exif, uint16_t tag) {
  for (size_t at = kTiffAt + 8; at + 12 <= exif.size(); at += 2) {
    if (exif[at] == (tag & 0xFF) && exif[at + 1] == tag >> 8) return at;
  }
  return 0;
}

void expectUntouched(Bytes exif) {
  const Bytes before = exif;
  EXPECT_FALSE(setExifDimensions(exif.data(), exif.size(), 1008, 752));
  EXPECT_EQ(exif, before);
}

TEST(ExifDimensions, OffsetsOutsideAreLeftAlone) {
  for (uint32_t offset : {0u, 4u, 0xFFFFu, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    Bytes exif = littleEndian();
    putU32(&exif, kMainPointerAt, offset);
    expectUntouched(exif);
    exif = littleEndian();
    putU32(&exif, entryAt(exif, 0x8769) + 8, offset);
    expectUntouched(exif);
  }
}

TEST(ExifDimensions, ADirectoryThatIsItsOwnChildIsLeftAlone) {
  Bytes exif = littleEndian();
  putU32(&exif, entryAt(exif, 0x8769) + 8, 8);
  expectUntouched(exif);
}

TEST(ExifDimensions, MoreEntriesThanThereIsRoomForAreLeftAlone) {
  Bytes exif = littleEndian();
  exif[kTiffAt + 8] = 0xFF;
  exif[kTiffAt + 9] = 0xFF;
  expectUntouched(exif);
}

TEST(ExifDimensions, OtherTypesAndCountsAreLeftAlone) {
  Bytes exif = littleEndian();
  exif[entryAt(exif, 0xA002) + 2] = 2;  // text
  exif[entryAt(exif, 0xA003) + 4] = 2;  // two numbers
  expectUntouched(exif);
}

TEST(ExifDimensions, OneDimensionAloneIsSet) {
  Bytes exif = littleEndian();
  exif[entryAt(exif, 0xA003)] = 0x99;
  EXPECT_TRUE(setExifDimensions(exif.data(), exif.size(), 1008, 752));
  const size_t entry = entryAt(exif, 0xA002);
  EXPECT_EQ(exif[entry + 8] | exif[entry + 9] << 8, 1008);
}

TEST(ExifDimensions, WhatIsNoExifIsLeftAlone) {
  expectUntouched({});
  expectUntouched({'E', 'x', 'i', 'f', 0, 0});
  Bytes exif = littleEndian();
  exif[kTiffAt] = 'M';
  expectUntouched(exif);
  exif = littleEndian();
  exif[kTiffAt + 2] = 43;
  expectUntouched(exif);
  exif = littleEndian();
  exif[0] = 'e';
  expectUntouched(exif);
}

}  // namespace
