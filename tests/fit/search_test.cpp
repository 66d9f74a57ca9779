// The search over scale and quantisation, on pictures that are formulas.
#include "fit/search/budget_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// Bytes are a power of pixels and coarseness, above a header; the likeness has one top.
class FormulaCodec : public SearchCodec {
 public:
  double complexity = 0.12;  // bytes per pixel at scale 1, coarseness 1
  double pixelPower = 0.8;
  double coarsenessPower = 0.7;
  double headerBytes = 600;
  double wholePixels = 12e6;
  bool breaks = false;

  bool encode(double scale, double coarseness, int64_t* bytes) override {
    if (breaks) return false;
    lastScale = scale;
    lastCoarseness = coarseness;
    coarsestAsked = std::max(coarsestAsked, coarseness);
    const double pixels = wholePixels * std::pow(scale * scale, pixelPower);
    *bytes = lastBytes =
        std::lround(headerBytes + pixels * complexity * std::pow(coarseness, -coarsenessPower));
    return true;
  }
  bool judge(double* similarity) override {
    const double lost = 0.002 / lastScale + 0.03 * std::pow(lastCoarseness, 0.8) * lastScale;
    *similarity = 1 - lost;
    return true;
  }
  bool finish(int64_t* bytes) override {
    *bytes = lastBytes;
    return true;
  }
  void keep() override {
    keptBytes = lastBytes;
    keptScale = lastScale;
    judge(&keptSimilarity);
  }
  bool judgeKept(double* similarity) override {
    *similarity = keptSimilarity;
    return true;
  }

  void expect(const SearchRest& rest) override { expected.push_back(rest); }

  std::vector<SearchRest> expected;
  int64_t keptBytes = 0;
  double keptScale = 0;
  double keptSimilarity = 0;
  double coarsestAsked = 0;

 private:
  double lastScale = 0;
  double lastCoarseness = 0;
  int64_t lastBytes = 0;
};

SearchLimits limitsOf(int64_t budget, const FormulaCodec& codec) {
  SearchLimits limits;
  limits.budgetBytes = budget;
  limits.pixels = codec.wholePixels;
  limits.leastScale = 0.016;
  limits.finest = 0.02;
  limits.coarsest = 5;
  return limits;
}

// The best likeness of any scale, when the budget is just met.
double bestOf(FormulaCodec codec, const SearchLimits& limits) {
  double best = 0;
  for (double scale = limits.leastScale; scale <= limits.mostScale; scale *= 1.02) {
    double fine = limits.finest;
    double coarse = limits.coarsest;
    int64_t bytes = 0;
    codec.encode(scale, coarse, &bytes);
    if (bytes > limits.budgetBytes) continue;
    for (int round = 0; round < 40; ++round) {
      const double middle = std::sqrt(fine * coarse);
      codec.encode(scale, middle, &bytes);
      (bytes > limits.budgetBytes ? fine : coarse) = middle;
    }
    double similarity = 0;
    codec.encode(scale, coarse, &bytes);
    codec.judge(&similarity);
    best = std::max(best, similarity);
  }
  return best;
}

TEST(BudgetSearchTest, MeetsEveryBudgetCloselyAndNearTheTop) {
  for (const double complexity : {0.03, 0.12, 0.5}) {
    for (const int64_t budget : {20000, 50000, 100000, 300000, 1000000}) {
      for (const double power : {0.5, 0.7, 0.95}) {
        FormulaCodec codec;
        codec.complexity = complexity;
        codec.coarsenessPower = power;
        const SearchLimits limits = limitsOf(budget, codec);
        BudgetSearch search(limits, &codec);
        ASSERT_TRUE(search.run()) << complexity << " " << budget << " " << power;
        EXPECT_LE(codec.keptBytes, budget);
        EXPECT_GE(codec.keptBytes, budget * 97 / 100)
            << complexity << " " << budget << " " << power;
        EXPECT_GT(search.similarity(), bestOf(codec, limits) - 0.003)
            << complexity << " " << budget << " " << power;
        EXPECT_LE(search.encodes(), 16);
        EXPECT_EQ(search.similarity(), codec.keptSimilarity);
      }
    }
  }
}

// As WebP's and AVIF's: whole qualities, between two of which a twentieth of the bytes may lie.
class CoarseStepsCodec : public FormulaCodec {
 public:
  double nearest(double coarseness) const override {
    return std::pow(1.08, std::round(std::log(coarseness) / std::log(1.08)));
  }
};

TEST(BudgetSearchTest, TakesWhatAFormatOfFewStepsHas) {
  for (const int64_t budget : {20000, 100000, 1000000}) {
    CoarseStepsCodec codec;
    BudgetSearch search(limitsOf(budget, codec), &codec);
    ASSERT_TRUE(search.run()) << budget;
    EXPECT_LE(codec.keptBytes, budget);
    EXPECT_GE(codec.keptBytes, budget * 92 / 100);
    EXPECT_LE(search.encodes(), 12);
  }
}

// A finished picture has more than was told of it, until that is known.
class SurprisingCodec : public FormulaCodec {
 public:
  bool encode(double scale, double coarseness, int64_t* bytes) override {
    FormulaCodec::encode(scale, coarseness, bytes);
    exact = *bytes * 102 / 100;
    if (isKnown) *bytes = exact;
    return true;
  }
  bool finish(int64_t* bytes) override {
    isKnown = true;
    *bytes = exact;
    return true;
  }
  void keep() override { kept = exact; }

  int64_t kept = 0;

 private:
  int64_t exact = 0;
  bool isKnown = false;
};

TEST(BudgetSearchTest, TheFinishedSizeCounts) {
  for (const int64_t budget : {20000, 100000, 1000000}) {
    SurprisingCodec codec;
    BudgetSearch search(limitsOf(budget, codec), &codec);
    ASSERT_TRUE(search.run()) << budget;
    EXPECT_LE(codec.kept, budget);
    EXPECT_GE(codec.kept, budget * 96 / 100);
  }
}

TEST(BudgetSearchTest, StaysWithinTheScales) {
  FormulaCodec codec;
  SearchLimits limits = limitsOf(300000, codec);
  limits.mostScale = 0.1;
  BudgetSearch search(limits, &codec);
  ASSERT_TRUE(search.run());
  EXPECT_LE(codec.keptScale, 0.1);
  EXPECT_LE(codec.keptBytes, 300000);
}

TEST(BudgetSearchTest, GoesSmallerRatherThanCoarserThanItMay) {
  FormulaCodec free;
  FormulaCodec fine;
  SearchLimits limits = limitsOf(100000, free);
  ASSERT_TRUE(BudgetSearch(limits, &free).run());
  limits.coarsest = 0.2;
  ASSERT_TRUE(BudgetSearch(limits, &fine).run());
  EXPECT_LE(fine.coarsestAsked, 0.2);
  EXPECT_LT(fine.keptScale, free.keptScale);
}

TEST(BudgetSearchTest, SaysTheSmallestWhereNothingIsSmallEnough) {
  FormulaCodec codec;
  BudgetSearch search(limitsOf(500, codec), &codec);
  EXPECT_FALSE(search.run());
  EXPECT_EQ(codec.keptBytes, 0);
  EXPECT_GT(search.smallestBytes(), 600);
  EXPECT_LE(search.encodes(), BudgetSearch::kMostEncodes);
}

TEST(BudgetSearchTest, FindsTheLittleThatIsPossible) {
  FormulaCodec codec;
  codec.complexity = 0.3;
  BudgetSearch search(limitsOf(3000, codec), &codec);
  ASSERT_TRUE(search.run());
  EXPECT_LE(codec.keptBytes, 3000);
}

TEST(BudgetSearchTest, EndsWithItsCodec) {
  FormulaCodec codec;
  codec.breaks = true;
  BudgetSearch search(limitsOf(300000, codec), &codec);
  EXPECT_FALSE(search.run());
  EXPECT_EQ(search.encodes(), 0);
}

// Each part of a search is expected when the one before it is over.
TEST(BudgetSearchTest, TellsWhatIsLikelyToCome) {
  FormulaCodec codec;
  BudgetSearch search(limitsOf(300000, codec), &codec);
  ASSERT_TRUE(search.run());
  ASSERT_GT(codec.expected.size(), static_cast<size_t>(search.encodes()));
  EXPECT_NEAR(codec.expected.front().encodes, search.encodes() - 1, 3);
  EXPECT_GT(codec.expected.front().judgements, 2);
  EXPECT_LT(codec.expected.back().encodes, 1);
  EXPECT_EQ(codec.expected.back().judgements, 1);  // of what is kept
  for (const SearchRest& rest : codec.expected) {
    EXPECT_GT(rest.encodes, 0);
    EXPECT_LE(rest.encodes, codec.expected.front().encodes);
  }
}

}  // namespace
