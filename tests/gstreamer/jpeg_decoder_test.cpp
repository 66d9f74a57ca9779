// The decoder alone: every kind of picture, in pieces, whole and broken off.
#include "platform/jpeg/jpeg_decoder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>

#include "tests/support/jpeg_media.h"

namespace {

using Failure = JpegDecoder::Failure;
using Progress = JpegDecoder::Progress;

struct Outcome {
  Failure failure = Failure::None;
  std::string errorText;
  std::vector<JpegPlane> planes;
  std::vector<Bytes> samples;  // of each plane, without what is beside the picture
};

// Gives the decoder the next piece whenever it asks for more.
Outcome decodeInPieces(const Bytes& jpeg, size_t pieceBytes, int eighths = 8) {
  JpegDecoder decoder;
  Outcome outcome;
  size_t given = 0;
  const auto until = [&](const std::function<Progress()>& step) {
    Progress progress;
    while ((progress = step()) == Progress::NeedsData) {
      const size_t count = std::min(pieceBytes, jpeg.size() - given);
      if (count == 0) decoder.endData();
      decoder.addData(jpeg.data() + given, count);
      given += count;
    }
    return progress;
  };
  bool goesOn = until([&] { return decoder.readHeader(); }) == Progress::Ready &&
                until([&] { return decoder.start(eighths); }) == Progress::Ready;
  if (goesOn) outcome.planes = decoder.planes();
  outcome.samples.resize(outcome.planes.size());
  while (goesOn && until([&] { return decoder.readRows(); }) == Progress::Ready) {
    for (size_t i = 0; i < outcome.planes.size(); ++i) {
      for (int y = 0; y < decoder.rowCount(i); ++y) {
        const uint8_t* row = decoder.row(i, y);
        outcome.samples[i].insert(outcome.samples[i].end(), row, row + outcome.planes[i].width);
      }
    }
  }
  outcome.failure = decoder.failure();
  outcome.errorText = decoder.errorText();
  return outcome;
}

Outcome decode(const Bytes& jpeg, int eighths = 8) {
  return decodeInPieces(jpeg, SIZE_MAX, eighths);
}

Bytes cut(const Bytes& jpeg, size_t bytesLost) {
  return Bytes(jpeg.begin(), jpeg.end() - static_cast<ptrdiff_t>(bytesLost));
}

struct Coding {
  const char* name;
  JpegRecipe recipe;
};

// Sizes that fill no block.
std::vector<Coding> codings() {
  const JpegRecipe plain = {.width = 101, .height = 67, .content = Content::Noise};
  std::vector<Coding> all = {{"baseline", plain}};
  const auto add = [&](const char* name, const std::function<void(JpegRecipe*)>& change) {
    all.push_back({name, plain});
    change(&all.back().recipe);
  };
  add("progressive", [](JpegRecipe* r) { r->progressive = true; });
  add("arithmetic", [](JpegRecipe* r) { r->arithmetic = true; });
  add("arithmeticProgressive", [](JpegRecipe* r) { r->arithmetic = r->progressive = true; });
  add("separateScans", [](JpegRecipe* r) { r->separateScans = true; });
  add("restarts", [](JpegRecipe* r) { r->restartRows = 1; });
  add("gray", [](JpegRecipe* r) { r->subsampling = Subsampling::Gray; });
  add("410", [](JpegRecipe* r) { r->subsampling = Subsampling::S410; });
  add("cmyk", [](JpegRecipe* r) { r->colours = Colours::CmykInverted; });
  return all;
}

class JpegDecoderCodings : public testing::TestWithParam<Coding> {};

INSTANTIATE_TEST_SUITE_P(All, JpegDecoderCodings, testing::ValuesIn(codings()),
                         [](const auto& coding) { return coding.param.name; });

TEST_P(JpegDecoderCodings, PiecesGiveTheSameAsTheWhole) {
  const Bytes jpeg = makeJpeg(GetParam().recipe);
  const Outcome whole = decode(jpeg);
  ASSERT_EQ(whole.failure, Failure::None) << whole.errorText;
  for (const JpegPlane& plane : whole.planes) {
    const auto i = static_cast<size_t>(&plane - whole.planes.data());
    EXPECT_EQ(whole.samples[i].size(), static_cast<size_t>(plane.width * plane.height));
  }
  for (const size_t pieceBytes : {size_t{1}, size_t{7}, size_t{1000}}) {
    const Outcome pieces = decodeInPieces(jpeg, pieceBytes);
    EXPECT_EQ(pieces.failure, Failure::None) << pieces.errorText;
    EXPECT_EQ(pieces.samples, whole.samples) << pieceBytes;
  }
}

TEST_P(JpegDecoderCodings, EveryShrinkingHasItsSize) {
  const Bytes jpeg = makeJpeg(GetParam().recipe);
  for (const int eighths : {1, 2, 4, 8}) {
    const Outcome outcome = decode(jpeg, eighths);
    ASSERT_EQ(outcome.failure, Failure::None) << outcome.errorText;
    EXPECT_DOUBLE_EQ(outcome.planes[0].pictureWidth, 101 * eighths / 8.0);
    EXPECT_DOUBLE_EQ(outcome.planes[0].pictureHeight, 67 * eighths / 8.0);
    EXPECT_EQ(outcome.planes[0].width, (101 * eighths + 7) / 8);
    EXPECT_EQ(outcome.planes[0].height, (67 * eighths + 7) / 8);
  }
}

TEST_P(JpegDecoderCodings, AMissingEndMarkerAloneIsNoError) {
  const Bytes jpeg = makeJpeg(GetParam().recipe);
  const Outcome outcome = decode(cut(jpeg, 2));
  EXPECT_EQ(outcome.failure, Failure::None) << outcome.errorText;
  EXPECT_EQ(outcome.samples, decode(jpeg).samples);
}

// Of noise every byte counts. Of an arithmetic coding the last row of blocks may be made up.
TEST_P(JpegDecoderCodings, WhereverItBreaksOffItIsAnError) {
  const Bytes jpeg = makeJpeg(GetParam().recipe);
  const size_t spared = GetParam().recipe.arithmetic ? jpeg.size() / 3 : 40;
  for (size_t lost = spared; lost < jpeg.size(); lost += 97) {
    const Outcome outcome = decode(cut(jpeg, lost));
    EXPECT_NE(outcome.failure, Failure::None) << lost << " of " << jpeg.size();
  }
}

TEST(JpegDecoder, AnEndMarkerTooEarlyIsAnError) {
  for (const bool progressive : {false, true}) {
    const Bytes jpeg = makeJpeg(
        {.width = 200, .height = 200, .content = Content::Noise, .progressive = progressive});
    Bytes broken = cut(jpeg, jpeg.size() / 2);
    broken.insert(broken.end(), {0xFF, 0xD9});
    EXPECT_EQ(decode(broken).failure, Failure::BreaksOff);
  }
}

// The scans are all there or they are not, and no data is cut through.
TEST(JpegDecoder, AMissingScanIsAnError) {
  for (const bool progressive : {false, true}) {
    const Bytes jpeg = makeJpeg(
        {.width = 80, .height = 64, .progressive = progressive, .separateScans = !progressive});
    const Bytes scan = {0xFF, 0xDA};
    const auto last = std::find_end(jpeg.begin(), jpeg.end(), scan.begin(), scan.end());
    // The tables of a scan stand before it.
    const Bytes table = {0xFF, 0xC4};
    const auto end =
        progressive ? std::find_end(jpeg.begin(), last, table.begin(), table.end()) : last;
    EXPECT_EQ(decode(Bytes(jpeg.begin(), end)).failure, Failure::BreaksOff);
  }
}

TEST(JpegDecoder, WhatFollowsDoesNotMatter) {
  const Bytes jpeg = makeJpeg({.width = 200, .height = 200, .content = Content::Noise});
  const Bytes longer = insertBytes(jpeg, jpeg.size(), makeJpeg({.content = Content::Noise}));
  EXPECT_EQ(decodeInPieces(longer, 5000).samples, decode(jpeg).samples);
}

TEST(JpegDecoder, TwelveBitsAreRefusedInWords) {
  Bytes jpeg = makeJpeg({});
  const Bytes frame = {0xFF, 0xC0};
  const auto at = std::search(jpeg.begin(), jpeg.end(), frame.begin(), frame.end());
  at[4] = 12;
  const Outcome outcome = decode(jpeg);
  EXPECT_EQ(outcome.failure, Failure::NotSupported);
  EXPECT_THAT(outcome.errorText, testing::HasSubstr("precision 12"));
}

// The first scan over and over: libjpeg only warns.
TEST(JpegDecoder, MoreThanAHundredScansAreRefused) {
  const Bytes jpeg = makeJpeg({.progressive = true});
  const Bytes scan = {0xFF, 0xDA};
  const Bytes table = {0xFF, 0xC4};
  const auto first = std::search(jpeg.begin(), jpeg.end(), scan.begin(), scan.end());
  const auto end = std::search(first, jpeg.end(), table.begin(), table.end());
  const auto repeated = [&](int times) {
    Bytes all(jpeg.begin(), first);
    for (int i = 0; i < times; ++i) {
      all.insert(all.end(), first, end);
    }
    all.insert(all.end(), end, jpeg.end());
    return all;
  };
  const Outcome many = decode(repeated(80));
  EXPECT_EQ(many.failure, Failure::None) << many.errorText;
  const Outcome tooMany = decode(repeated(100));
  EXPECT_EQ(tooMany.failure, Failure::TooLarge);
  EXPECT_THAT(tooMany.errorText, testing::HasSubstr("scans"));
}

TEST(JpegDecoder, CoefficientsAreCountedWhereTheyAreKept) {
  const auto coefficientBytes = [](bool progressive) {
    JpegDecoder decoder;
    const Bytes jpeg = makeJpeg({.width = 64, .height = 32, .progressive = progressive});
    decoder.addData(jpeg.data(), jpeg.size());
    EXPECT_EQ(decoder.readHeader(), Progress::Ready);
    return decoder.coefficientBytes();
  };
  EXPECT_EQ(coefficientBytes(false), 0u);
  EXPECT_EQ(coefficientBytes(true), size_t{64 * 32 * 3 / 2 * 2});
}

TEST(JpegDecoder, AFailureStays) {
  JpegDecoder decoder;
  const Bytes text = {'t', 'e', 'x', 't'};
  decoder.addData(text.data(), text.size());
  EXPECT_EQ(decoder.readHeader(), Progress::Failed);
  const Bytes jpeg = makeJpeg({});
  decoder.addData(jpeg.data(), jpeg.size());
  EXPECT_EQ(decoder.readHeader(), Progress::Failed);
  EXPECT_EQ(decoder.failure(), Failure::Damaged);
}

}  // namespace
