// What is told of a photo's progress, by a clock of the test's.
#include "fit/photo/photo_progress.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr PhotoProgress::Work kWork = {
    .sourcePixels = 12e6, .comparedPixels = 1e6, .maxBytes = 300000, .format = PhotoKind::Jpeg};

class PhotoProgressTest : public testing::Test {
 protected:
  double seconds = 0;
  std::vector<double> told;
  PhotoProgress progress{kWork, [this](double share) { told.push_back(share); },
                         [this] { return seconds; }};
};

TEST_F(PhotoProgressTest, AStepToComeIsTakenToCostWhatOneDid) {
  seconds = 1;
  progress.decoded(1);
  seconds = 3;
  progress.encoded(1e6);
  progress.expect({.encodes = 2, .judgements = 0, .finishes = 0}, 1e6);
  EXPECT_DOUBLE_EQ(told.back(), 3.0 / 7);
  seconds = 4;
  progress.judged();
  progress.expect({.encodes = 1, .judgements = 1, .finishes = 0}, 1e6);
  EXPECT_DOUBLE_EQ(told.back(), 4.0 / 7);
}

TEST_F(PhotoProgressTest, AnEncodeOfMorePixelsCostsMore) {
  progress.decoded(1);
  seconds = 2;
  progress.encoded(1e6);
  progress.expect({.encodes = 1, .judgements = 0, .finishes = 0}, 2e6);
  EXPECT_DOUBLE_EQ(told.back(), 2.0 / 6);
}

TEST_F(PhotoProgressTest, NeverFallsAndEndsShortOfTheEnd) {
  progress.decoded(1);
  seconds = 2;
  progress.encoded(1e6);
  progress.expect({.encodes = 1, .judgements = 0, .finishes = 0}, 1e6);
  const double half = told.back();
  progress.expect({.encodes = 9, .judgements = 0, .finishes = 0}, 1e6);
  EXPECT_EQ(told.back(), half);
  progress.expect({.encodes = 0, .judgements = 0, .finishes = 0}, 1e6);
  EXPECT_LT(told.back(), 1);
  EXPECT_GT(told.back(), 0.9);
}

TEST_F(PhotoProgressTest, DecodingIsPartOfIt) {
  progress.decoded(0.5);
  const double half = told.back();
  progress.decoded(1);
  EXPECT_GT(half, 0);
  EXPECT_DOUBLE_EQ(told.back(), 2 * half);
  EXPECT_LT(told.back(), 0.5);
}

}  // namespace
