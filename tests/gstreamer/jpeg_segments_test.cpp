#include "platform/jpeg/jpeg_segments.h"

#include <gmock/gmock.h>

#include "tests/support/jpeg_media.h"

namespace {

using Status = JpegHeaderReader::Status;
using testing::ElementsAre;

Bytes join(const std::vector<Bytes>& parts) {
  Bytes whole;
  for (const Bytes& part : parts) {
    whole.insert(whole.end(), part.begin(), part.end());
  }
  return whole;
}

const Bytes kSoi = {0xFF, 0xD8};
const Bytes kSos = {0xFF, 0xDA};

Bytes frame(int width, int height, uint8_t marker = 0xC0) {
  return makeSegment(
      marker, {8, static_cast<uint8_t>(height >> 8), static_cast<uint8_t>(height),
               static_cast<uint8_t>(width >> 8), static_cast<uint8_t>(width), 1, 1, 0x11, 0});
}

JpegHeaderReader read(const Bytes& bytes) {
  JpegHeaderReader reader;
  reader.feed(bytes.data(), bytes.size());
  return reader;
}

JpegRecipe richRecipe() {
  JpegRecipe recipe;
  recipe.exif = ExifRecipe{.gps = true, .makerNoteBytes = 300, .thumbnail = true};
  recipe.xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
  recipe.iptcCaption = "caption";
  recipe.iccBytes = 200;
  recipe.comment = "comment";
  return recipe;
}

std::vector<int> markersOf(const JpegHeaderReader& reader) {
  std::vector<int> markers;
  for (const JpegSegment& segment : reader.segments()) {
    markers.push_back(segment.marker);
  }
  return markers;
}

size_t offsetOfFirstScan(const Bytes& jpeg) {
  for (size_t size = 1; size <= jpeg.size(); ++size) {
    JpegHeaderReader reader;
    if (reader.feed(jpeg.data(), size) == Status::Complete) return size;
  }
  return 0;
}

TEST(JpegSegments, KeepsApplicationSegmentsAndCommentsInOrder) {
  const JpegHeaderReader reader = read(makeJpeg(richRecipe()));
  EXPECT_EQ(reader.status(), Status::Complete);
  EXPECT_EQ(reader.width(), 64u);
  EXPECT_EQ(reader.height(), 48u);
  EXPECT_THAT(markersOf(reader), ElementsAre(0xE0, 0xE1, 0xE1, 0xED, 0xE2, 0xFE));
  EXPECT_EQ(reader.segments()[1].payload, makeExif(*richRecipe().exif, 64, 48));
}

TEST(JpegSegments, PiecesOfAnySizeReadTheSame) {
  const Bytes jpeg = makeJpeg(richRecipe());
  const JpegHeaderReader whole = read(jpeg);
  for (size_t split = 0; split <= jpeg.size(); ++split) {
    JpegHeaderReader reader;
    reader.feed(jpeg.data(), split);
    ASSERT_EQ(reader.feed(jpeg.data() + split, jpeg.size() - split), Status::Complete) << split;
    ASSERT_EQ(reader.segments().size(), whole.segments().size()) << split;
    for (size_t i = 0; i < whole.segments().size(); ++i) {
      ASSERT_EQ(reader.segments()[i].payload, whole.segments()[i].payload) << split;
    }
  }
  JpegHeaderReader byteByByte;
  for (uint8_t byte : jpeg) {
    byteByByte.feed(&byte, 1);
  }
  EXPECT_EQ(byteByByte.status(), Status::Complete);
  EXPECT_EQ(markersOf(byteByByte), markersOf(whole));
}

TEST(JpegSegments, EveryTruncationBeforeTheScanNeedsMore) {
  const Bytes jpeg = makeJpeg(richRecipe());
  const size_t scan = offsetOfFirstScan(jpeg);
  ASSERT_GT(scan, 1000u);
  for (size_t size = 0; size < scan; ++size) {
    JpegHeaderReader reader;
    ASSERT_EQ(reader.feed(jpeg.data(), size), Status::NeedsMore) << size;
  }
}

TEST(JpegSegments, FillBytesStrayBytesAndMarkersWithoutLengthAreSkipped) {
  const JpegHeaderReader reader = read(join({kSoi,
                                             {0xFF, 0xFF, 0xFF},
                                             makeSegment(0xFE, {1, 2}),
                                             {0x00, 0x12},
                                             {0xFF, 0x01},
                                             {0xFF, 0xD0},
                                             {0xFF, 0xD7},
                                             {0xFF, 0x00},
                                             frame(5, 7),
                                             kSos}));
  EXPECT_EQ(reader.status(), Status::Complete);
  EXPECT_THAT(markersOf(reader), ElementsAre(0xFE));
  EXPECT_EQ(reader.width(), 5u);
  EXPECT_EQ(reader.height(), 7u);
}

TEST(JpegSegments, SegmentsOfTheLeastAndTheGreatestLength) {
  const Bytes longest(kMaxSegmentPayload, 0xFF);
  const JpegHeaderReader reader =
      read(join({kSoi, makeSegment(0xE5, {}), makeSegment(0xE5, longest), frame(1, 1), kSos}));
  ASSERT_EQ(reader.status(), Status::Complete);
  ASSERT_EQ(reader.segments().size(), 2u);
  EXPECT_TRUE(reader.segments()[0].payload.empty());
  EXPECT_EQ(reader.segments()[1].payload, longest);
}

TEST(JpegSegments, WhatIsNoJpegIsTold) {
  EXPECT_EQ(read({0xFF}).status(), Status::NeedsMore);
  EXPECT_EQ(read({'G', 'I', 'F', '8'}).status(), Status::NotJpeg);
  EXPECT_EQ(read({0xFF, 0xFF, 0xD8}).status(), Status::NotJpeg);
}

TEST(JpegSegments, DamagedHeadersAreTold) {
  EXPECT_EQ(read(join({kSoi, {0xFF, 0xE0, 0, 1}})).status(), Status::Malformed);
  EXPECT_EQ(read(join({kSoi, kSoi})).status(), Status::Malformed);
  EXPECT_EQ(read(join({kSoi, frame(1, 1), {0xFF, 0xD9}})).status(), Status::Malformed);
  EXPECT_EQ(read(join({kSoi, kSos})).status(), Status::Malformed);
  EXPECT_EQ(read(join({kSoi, makeSegment(0xC0, {8, 0, 1, 0, 1})})).status(), Status::Malformed);
}

TEST(JpegSegments, TheFirstVerdictStays) {
  JpegHeaderReader reader = read({'x', 'y'});
  const Bytes jpeg = makeJpeg({});
  EXPECT_EQ(reader.feed(jpeg.data(), jpeg.size()), Status::NotJpeg);
  JpegHeaderReader complete = read(jpeg);
  EXPECT_EQ(complete.feed(kSoi.data(), kSoi.size()), Status::Complete);
}

TEST(JpegSegments, AnyKindOfFrameGivesTheSizeButTablesDoNot) {
  for (uint8_t marker : std::initializer_list<uint8_t>{0xC1, 0xC2, 0xC3, 0xC5, 0xC9, 0xCF}) {
    EXPECT_EQ(read(join({kSoi, frame(300, 2, marker), kSos})).width(), 300u) << int{marker};
  }
  for (uint8_t marker : std::initializer_list<uint8_t>{0xC4, 0xC8, 0xCC}) {
    EXPECT_EQ(read(join({kSoi, frame(300, 2, marker), kSos})).status(), Status::Malformed);
  }
}

TEST(JpegSegments, TheLargestOfSeveralFramesCounts) {
  const JpegHeaderReader reader =
      read(join({kSoi, frame(2, 2), frame(65535, 65535), frame(3, 3), kSos}));
  EXPECT_EQ(reader.width(), 65535u);
  EXPECT_EQ(reader.height(), 65535u);
}

TEST(JpegSegments, AnEndlessHeaderIsGivenUp) {
  JpegHeaderReader reader;
  reader.feed(kSoi.data(), kSoi.size());
  const Bytes block(1 << 20, 0);
  for (int i = 0; i < 64 && reader.status() == Status::NeedsMore; ++i) {
    reader.feed(block.data(), block.size());
  }
  EXPECT_EQ(reader.status(), Status::TooLong);
}

TEST(JpegSegments, TinySegmentsBeyondTheBoundAreCounted) {
  JpegHeaderReader reader;
  reader.feed(kSoi.data(), kSoi.size());
  const Bytes comment = makeSegment(0xFE, {});
  for (size_t i = 0; i < JpegHeaderReader::maxSegments + 3; ++i) {
    reader.feed(comment.data(), comment.size());
  }
  EXPECT_EQ(reader.segments().size(), JpegHeaderReader::maxSegments);
  EXPECT_EQ(reader.leftOut(), 3u);
}

}  // namespace
