#include "fit/picture/similarity.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int kBlock = 4;
constexpr int kWindowSamples = 64;
// The paper's constants of 0.01 and 0.03 of the range, squared; for sums over a window.
constexpr double kC1 = 0.01 * 255 * 0.01 * 255 * kWindowSamples * kWindowSamples;
constexpr double kC2 = 0.03 * 255 * 0.03 * 255 * kWindowSamples * kWindowSamples;

struct Sums {
  int a = 0;
  int b = 0;
  int squares = 0;  // of both
  int product = 0;

  void add(const Sums& other) {
    a += other.a;
    b += other.b;
    squares += other.squares;
    product += other.product;
  }
};

void sumBlocks(const Plane& a, const Plane& b, int y, std::vector<Sums>* row) {
  for (size_t i = 0; i < row->size(); ++i) {
    Sums sums;
    for (int line = 0; line < kBlock; ++line) {
      const uint8_t* left = a.row(y + line) + i * kBlock;
      const uint8_t* right = b.row(y + line) + i * kBlock;
      for (int x = 0; x < kBlock; ++x) {
        sums.a += left[x];
        sums.b += right[x];
        sums.squares += left[x] * left[x] + right[x] * right[x];
        sums.product += left[x] * right[x];
      }
    }
    (*row)[i] = sums;
  }
}

double windowSimilarity(const Sums& sums) {
  const double product = static_cast<double>(sums.a) * sums.b;
  const double squares =
      static_cast<double>(sums.a) * sums.a + static_cast<double>(sums.b) * sums.b;
  const double variances = static_cast<double>(sums.squares) * kWindowSamples - squares;
  const double covariance = static_cast<double>(sums.product) * kWindowSamples - product;
  return (2 * product + kC1) * (2 * covariance + kC2) / ((squares + kC1) * (variances + kC2));
}

}  // namespace

double similarity(const Plane& a, const Plane& b) {
  if (a.width < 2 * kBlock || a.height < 2 * kBlock) return 1;
  std::vector<Sums> above(static_cast<size_t>(a.width / kBlock));
  std::vector<Sums> below(above.size());
  sumBlocks(a, b, 0, &above);
  double total = 0;
  long windows = 0;
  for (int y = kBlock; y + kBlock <= a.height; y += kBlock) {
    sumBlocks(a, b, y, &below);
    for (size_t i = 0; i + 1 < above.size(); ++i) {
      Sums window = above[i];
      window.add(above[i + 1]);
      window.add(below[i]);
      window.add(below[i + 1]);
      total += windowSimilarity(window);
      ++windows;
    }
    std::swap(above, below);
  }
  return total / static_cast<double>(windows);
}
