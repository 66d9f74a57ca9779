#include "platform/gstreamer/photo/plane_resampler.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr double kLobes = 3;
// Weights are whole numbers of 1 / 2^14; a row between the two passes has 6 bits below the point.
// The filter overshoots to at most 1.6 times the range: that fits 16 bits there, and 32 in a sum.
constexpr int kWeightBits = 14;
constexpr int kRowBits = 6;

// The samples that make one new sample, and where their weights begin.
struct Window {
  int first;
  int count;
  size_t weights;
};

// The windows of all new samples of one direction.
struct Filter {
  std::vector<Window> windows;
  std::vector<int16_t> weights;  // of every window in turn, each with the sum 2^14
};

double lanczos(double x) {
  if (std::abs(x) < 1e-9) return 1;
  if (std::abs(x) >= kLobes) return 0;
  const double angle = std::numbers::pi * x;
  return kLobes * std::sin(angle) * std::sin(angle / kLobes) / (angle * angle);
}

// Each weight takes over what was lost in rounding those before it, so that the sum is exact.
void appendRounded(const std::vector<double>& exact, std::vector<int16_t>* weights) {
  double sum = 0;
  for (const double weight : exact)
    sum += weight;
  double soFar = 0;
  int roundedSoFar = 0;
  for (const double weight : exact) {
    soFar += weight;
    const int rounded = static_cast<int>(std::lround(soFar / sum * (1 << kWeightBits)));
    weights->push_back(static_cast<int16_t>(rounded - roundedSoFar));
    roundedSoFar = rounded;
  }
}

Filter makeFilter(int oldSize, int newSize) {
  const double scale = static_cast<double>(oldSize) / newSize;
  const double stretch = std::max(1.0, scale);
  Filter filter;
  filter.windows.reserve(static_cast<size_t>(newSize));
  std::vector<double> exact;
  for (int i = 0; i < newSize; i++) {
    const double centre = (i + 0.5) * scale;
    const int first = static_cast<int>(std::max(0.0, std::floor(centre - kLobes * stretch)));
    const int end =
        static_cast<int>(std::min<double>(oldSize, std::ceil(centre + kLobes * stretch)));
    exact.clear();
    for (int j = first; j < end; j++)
      exact.push_back(lanczos((j + 0.5 - centre) / stretch));
    filter.windows.push_back({first, end - first, filter.weights.size()});
    appendRounded(exact, &filter.weights);
  }
  return filter;
}

// Adds the row, weighed, to the sums. A step of one is told to the compiler, which then takes
// several samples at a time.
void addRow(const uint8_t* row, ptrdiff_t stepBytes, int16_t weight, std::vector<int32_t>* sums) {
  int32_t* const sum = sums->data();
  const auto width = static_cast<ptrdiff_t>(sums->size());
  if (stepBytes == 1) {
    for (ptrdiff_t x = 0; x < width; x++)
      sum[x] += static_cast<int16_t>(row[x]) * weight;
  } else {
    for (ptrdiff_t x = 0; x < width; x++)
      sum[x] += static_cast<int16_t>(row[x * stepBytes]) * weight;
  }
}

uint8_t weighedSum(const int16_t* samples, const int16_t* weights, int count) {
  int32_t sum = 1 << (kWeightBits + kRowBits - 1);
  for (int i = 0; i < count; i++)
    sum += samples[i] * weights[i];
  return static_cast<uint8_t>(std::clamp(sum >> (kWeightBits + kRowBits), 0, 255));
}

}  // namespace

void resamplePlane(const PlaneOf<const uint8_t>& from, const PlaneOf<uint8_t>& to) {
  const Filter across = makeFilter(from.width, to.width);
  const Filter down = makeFilter(from.height, to.height);
  std::vector<int32_t> sums(static_cast<size_t>(from.width));
  std::vector<int16_t> row(sums.size());
  for (int y = 0; y < to.height; y++) {
    const Window& rows = down.windows[static_cast<size_t>(y)];
    std::fill(sums.begin(), sums.end(), 1 << (kWeightBits - kRowBits - 1));
    for (int i = 0; i < rows.count; i++) {
      addRow(from.samples + (rows.first + i) * from.rowBytes, from.stepBytes,
             down.weights[rows.weights + static_cast<size_t>(i)], &sums);
    }
    std::transform(sums.begin(), sums.end(), row.begin(), [](int32_t sum) {
      return static_cast<int16_t>(sum >> (kWeightBits - kRowBits));
    });
    uint8_t* const samples = to.samples + y * to.rowBytes;
    for (int x = 0; x < to.width; x++) {
      const Window& window = across.windows[static_cast<size_t>(x)];
      samples[x * to.stepBytes] = weighedSum(&row[static_cast<size_t>(window.first)],
                                             &across.weights[window.weights], window.count);
    }
  }
}
