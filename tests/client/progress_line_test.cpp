#include "client/commands/progress_line.h"

#include <gtest/gtest.h>

namespace {

constexpr Step kMovie = {.share = 0.43, .pass = 1, .passes = 2};

TEST(ProgressLine, HasABarAsWideAsThereIsRoom) {
  EXPECT_EQ(progressText(kMovie, 43, 79),
            " 43 % [################----------------------] pass 1 of 2, 0:57 left");
  EXPECT_EQ(progressText(kMovie, 43, 40), " 43 % [###------] pass 1 of 2, 0:57 left");
  EXPECT_EQ(progressText(kMovie, 43, 40).size(), 40u);
}

TEST(ProgressLine, NarrowTerminalsHaveTheTimeThenThePercent) {
  EXPECT_EQ(progressText(kMovie, 43, 29), " 43 % [####-------] 0:57 left");
  EXPECT_EQ(progressText(kMovie, 43, 29).size(), 29u);
  EXPECT_EQ(progressText(kMovie, 43, 20), " 43 % 0:57 left");
  EXPECT_EQ(progressText(kMovie, 43, 5), " 43 %");
}

TEST(ProgressLine, NothingIsSaidThatIsUnknown) {
  EXPECT_EQ(progressText({.share = 0}, 1, 29), "  0 % [--------------------] ");
  EXPECT_EQ(progressText({.share = 0.5}, 10, 0), " 50 % 0:10 left");
  EXPECT_EQ(progressText({.share = 7}, 10, 24), "100 % [######] 0:00 left");
}

}  // namespace
