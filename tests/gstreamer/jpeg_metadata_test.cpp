#include "platform/jpeg/jpeg_metadata.h"

#include <gmock/gmock.h>

#include <string_view>

#include "tests/support/jpeg_media.h"

namespace {

using std::string_view_literals::operator""sv;

JpegSegment named(uint8_t marker, std::string_view name) {
  return {marker, Bytes(name.begin(), name.end())};
}

std::vector<JpegSegment> segmentsOf(const Bytes& jpeg) {
  JpegHeaderReader reader;
  EXPECT_EQ(reader.feed(jpeg.data(), jpeg.size()), JpegHeaderReader::Status::Complete);
  return reader.segments();
}

std::vector<Bytes> payloadsOf(const std::vector<JpegSegment>& segments) {
  std::vector<Bytes> payloads;
  for (const JpegSegment& segment : segments) {
    payloads.push_back(segment.payload);
  }
  return payloads;
}

// The whole new file.
Bytes remake(const Bytes& encoded, const std::vector<JpegSegment>& metadata) {
  JpegHead head;
  EXPECT_TRUE(makeJpegHead(encoded.data(), encoded.size(), metadata, &head));
  Bytes file = head.bytes;
  file.insert(file.end(), encoded.begin() + static_cast<ptrdiff_t>(head.restOffset), encoded.end());
  return file;
}

Bytes encoderPicture() {
  return makeJpeg({.width = 16, .height = 32, .density = 1});
}

Bytes bareEncoderPicture() {
  return makeJpeg({.width = 16, .height = 32, .jfif = false});
}

TEST(JpegMetadata, OnlyWhatDescribesTheOldFileIsLeftBehind) {
  EXPECT_FALSE(isJpegMetadata(named(0xEE, "Adobe\0d"sv)));
  EXPECT_FALSE(isJpegMetadata(named(0xE2, "MPF\0II"sv)));
  EXPECT_FALSE(isJpegMetadata(named(0xE0, "AVI1"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xE0, "JFIF\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xE1, "Exif\0\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xE1, "http://ns.adobe.com/xap/1.0/\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xE1, "http://ns.adobe.com/xmp/extension/\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xE2, "ICC_PROFILE\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xE2, "FPXR\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xEC, "PictureInfo"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xED, "Photoshop 3.0\0"sv)));
  EXPECT_TRUE(isJpegMetadata(named(0xFE, "MPF\0"sv)));
  EXPECT_TRUE(isJpegMetadata({0xFE, {}}));
}

TEST(JpegMetadata, WithoutMetadataThePictureStaysByteForByte) {
  EXPECT_EQ(remake(encoderPicture(), {}), encoderPicture());
  EXPECT_EQ(remake(bareEncoderPicture(), {}), bareEncoderPicture());
}

TEST(JpegMetadata, ExifTakesThePlaceOfTheEncodersJfifAndGetsTheNewSize) {
  JpegRecipe source{.width = 640, .height = 480, .jfif = false};
  source.exif = ExifRecipe{.bigEndian = true, .makerNoteBytes = 50, .thumbnail = true};
  source.xmp = "<x:xmpmeta/>";
  const auto made = segmentsOf(remake(encoderPicture(), segmentsOf(makeJpeg(source))));
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(made[0].payload, makeExif(*source.exif, 16, 32));
  EXPECT_EQ(made[1].payload, segmentsOf(makeJpeg(source))[1].payload);
}

TEST(JpegMetadata, TheSourcesJfifStaysBesideItsExif) {
  JpegRecipe source{.width = 16, .height = 32, .density = 240};
  source.exif = ExifRecipe{};
  const auto wanted = segmentsOf(makeJpeg(source));
  ASSERT_EQ(wanted.size(), 2u);
  EXPECT_EQ(payloadsOf(segmentsOf(remake(encoderPicture(), wanted))), payloadsOf(wanted));
}

TEST(JpegMetadata, TheSourcesJfifReplacesTheEncoders) {
  const JpegRecipe source{.density = 240, .comment = "hello"};
  const auto wanted = segmentsOf(makeJpeg(source));
  EXPECT_EQ(payloadsOf(segmentsOf(remake(encoderPicture(), wanted))), payloadsOf(wanted));
  EXPECT_EQ(payloadsOf(segmentsOf(remake(bareEncoderPicture(), wanted))), payloadsOf(wanted));
}

TEST(JpegMetadata, JfifComesFirstWhereverItStood) {
  const auto jfif = segmentsOf(makeJpeg({.density = 240})).front();
  const auto made = segmentsOf(remake(encoderPicture(), {named(0xFE, "text"), jfif}));
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(made[0].payload, jfif.payload);
}

TEST(JpegMetadata, TheEncodersJfifStaysBesideOtherMetadata) {
  const auto made = segmentsOf(remake(encoderPicture(), {named(0xFE, "text")}));
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(made[0].payload, segmentsOf(encoderPicture())[0].payload);
  EXPECT_EQ(made[1].payload, named(0xFE, "text").payload);
}

TEST(JpegMetadata, AProfileOfSeveralSegmentsStaysInOrder) {
  const auto source = segmentsOf(makeJpeg({.jfif = false, .iccBytes = 150'000}));
  ASSERT_EQ(source.size(), 3u);
  EXPECT_EQ(payloadsOf(segmentsOf(remake(bareEncoderPicture(), source))), payloadsOf(source));
}

TEST(JpegMetadata, TooLongSegmentsAreLeftOutAndTheRestIsWritten) {
  const JpegSegment longest{0xE5, Bytes(kMaxSegmentPayload, 7)};
  const JpegSegment tooLong{0xE1, Bytes(kMaxSegmentPayload + 1, 7)};
  const Bytes encoded = bareEncoderPicture();
  JpegHead head;
  ASSERT_TRUE(makeJpegHead(encoded.data(), encoded.size(), {tooLong, longest}, &head));
  EXPECT_EQ(head.leftOut, 1u);
  EXPECT_EQ(head.bytes.size(), 2 + 4 + kMaxSegmentPayload);
}

TEST(JpegMetadata, OnlyTheFirstExifSegmentIsTouched) {
  const JpegSegment exif{0xE1, makeExif({}, 640, 480)};
  const auto made = segmentsOf(remake(bareEncoderPicture(), {exif, exif}));
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(made[0].payload, makeExif({}, 16, 32));
  EXPECT_EQ(made[1].payload, exif.payload);
}

TEST(JpegMetadata, DamagedExifIsPassedOnAsItIs) {
  JpegSegment exif{0xE1, makeExif({}, 640, 480)};
  exif.payload.resize(40);
  const auto made = segmentsOf(remake(bareEncoderPicture(), {exif}));
  ASSERT_EQ(made.size(), 1u);
  EXPECT_EQ(made[0].payload, exif.payload);
}

TEST(JpegMetadata, EveryTruncationOfTheEncodedHeaderIsRefusedOrHarmless) {
  const Bytes whole = encoderPicture();
  for (size_t size = 0; size < whole.size(); ++size) {
    Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    cut.shrink_to_fit();
    JpegHead head;
    if (makeJpegHead(cut.data(), cut.size(), {named(0xFE, "text")}, &head)) {
      ASSERT_LE(head.restOffset, size);
    } else {
      ASSERT_TRUE(head.bytes.empty());
    }
  }
}

std::vector<JpegSegment> largeMetadata() {
  std::string extended("http://ns.adobe.com/xmp/extension/");
  extended.push_back('\0');
  extended.resize(2000, 'x');
  return {{0xE1, makeExif({.orientation = 6, .makerNoteBytes = 3000, .thumbnail = true}, 64, 48)},
          {0xE1, Bytes(extended.begin(), extended.end())},
          {0xE2, makeIccProfile(1000)}};
}

size_t bytesOf(const std::vector<JpegSegment>& metadata) {
  size_t bytes = 0;
  for (const JpegSegment& segment : metadata) {
    bytes += 4 + segment.payload.size();
  }
  return bytes;
}

TEST(JpegMetadataShedding, NothingGoesWhileThePictureIsTheLarger) {
  auto metadata = largeMetadata();
  EXPECT_EQ(shedJpegMetadata(bytesOf(metadata), &metadata), ShedNothing);
  EXPECT_EQ(bytesOf(metadata), bytesOf(largeMetadata()));
}

TEST(JpegMetadataShedding, OneGoesAfterTheOther) {
  auto metadata = largeMetadata();
  EXPECT_EQ(shedJpegMetadata(bytesOf(metadata) - 1, &metadata), unsigned{ShedThumbnail});
  EXPECT_EQ(metadata.size(), 3u);
  EXPECT_EQ(shedJpegMetadata(bytesOf(metadata) - 1, &metadata), unsigned{ShedExtendedXmp});
  EXPECT_EQ(metadata.size(), 2u);
  EXPECT_EQ(shedJpegMetadata(bytesOf(metadata) - 1, &metadata), unsigned{ShedMakerNote});
  const size_t least = bytesOf(metadata);
  EXPECT_EQ(shedJpegMetadata(10, &metadata), ShedNothing);
  EXPECT_EQ(bytesOf(metadata), least);
}

TEST(JpegMetadataShedding, AllGoesAtOnceForATinyPicture) {
  auto metadata = largeMetadata();
  EXPECT_EQ(shedJpegMetadata(10, &metadata),
            unsigned{ShedThumbnail} | ShedExtendedXmp | ShedMakerNote);
  ASSERT_EQ(metadata.size(), 2u);
  EXPECT_EQ(metadata[1].payload, makeIccProfile(1000));
}

}  // namespace
