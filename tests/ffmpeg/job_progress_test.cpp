// What is told of a job's progress, by a clock of the test's.
#include "platform/ffmpeg/job/job_progress.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class JobProgressTest : public testing::Test {
 protected:
  double seconds = 100;
  std::vector<double> told;
  JobProgress progress{Options(), 100000, [this](double share) { told.push_back(share); },
                       [this] { return seconds; }};
};

TEST_F(JobProgressTest, WhatIsToComeGoesAsFastAsWhatIsDone) {
  progress.begin(1, 1);
  seconds += 2;
  progress.at(0.5, 1);
  EXPECT_NEAR(told.back(), 2.0 / 8, 1e-4);
  seconds += 2;
  progress.at(1, 1);
  EXPECT_NEAR(told.back(), 4.0 / 8, 1e-4);
}

// The second encode takes three times as long as the first.
TEST_F(JobProgressTest, ASlowerRunTellsOfItself) {
  progress.begin(1, 1);
  seconds += 2;
  progress.at(1, 1);
  progress.end();
  progress.begin(1, 0);
  EXPECT_NEAR(told.back(), 0.5, 1e-4);
  seconds += 3;
  progress.at(0.5, 0);
  EXPECT_NEAR(told.back(), 5.0 / 8, 1e-4);
}

TEST_F(JobProgressTest, NeverFalls) {
  progress.begin(1, 0);
  seconds += 1;
  progress.at(0.5, 0);
  const double half = told.back();
  progress.at(0.5, 3);
  EXPECT_EQ(told.back(), half);
}

TEST_F(JobProgressTest, BeforeAnythingIsTimedTheCostsTell) {
  progress.begin(1, 1);
  seconds += 50;
  progress.at(0.1, 1);
  EXPECT_NEAR(told.back(), 0.05, 1e-4);
}

}  // namespace
