#include "platform/jpeg/plane_resampler.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#ifdef __SSE2__
#include <immintrin.h>
#endif

namespace {

constexpr int kLobes = 3;
// Weights are whole numbers of 1 / 2^14; a row between the two passes has 6 bits below the point.
// The filter overshoots to at most 1.6 times the range: that fits 16 bits there, and 32 in a sum.
constexpr int kWeightBits = 14;
constexpr int kRowBits = 6;
constexpr int kRowShift = kWeightBits - kRowBits;
// What is weighed at once: samples of a row, weights of a window, windows. Rows and filters are
// padded to whole numbers of them.
constexpr int kSamplesAtOnce = 32;
constexpr int kWeightsAtOnce = 8;
constexpr int kWindowsAtOnce = 4;

int roundUp(int value, int step) {
  return (value + step - 1) / step * step;
}

double exactLanczos(double x) {
  if (x < 1e-9) return 1;
  const double angle = std::numbers::pi * x;
  return kLobes * std::sin(angle) * std::sin(angle / kLobes) / (angle * angle);
}

// From a table: two sines for each weight would take longer than the scaling of a small picture.
double lanczos(double x) {
  constexpr int kSteps =
      1024;  // for each unit of x; between two, a straight line is exact to 2^-18
  static const auto table = [] {
    std::array<double, kLobes* kSteps + 2> values = {};
    for (int i = 0; i < kLobes * kSteps; i++) {
      values[static_cast<size_t>(i)] = exactLanczos(static_cast<double>(i) / kSteps);
    }
    return values;
  }();
  const double place = std::min(std::abs(x), static_cast<double>(kLobes)) * kSteps;
  const auto below = static_cast<size_t>(place);
  const double part = place - static_cast<double>(below);
  return table[below] * (1 - part) + table[below + 1] * part;
}

// Each weight takes over what was lost in rounding those before it, so that the sum is exact.
void roundWeights(const std::vector<double>& exact, int16_t* weights) {
  double sum = 0;
  for (const double weight : exact) {
    sum += weight;
  }
  double soFar = 0;
  int roundedSoFar = 0;
  for (const double weight : exact) {
    soFar += weight;
    const int rounded = static_cast<int>(std::floor(soFar / sum * (1 << kWeightBits) + 0.5));
    *weights++ = static_cast<int16_t>(rounded - roundedSoFar);
    roundedSoFar = rounded;
  }
}

// weighRows makes one row of words of an even number of rows of bytes; all are padded.
// weighWindows makes bytes of a row of words: the sum of each window, whose first samples and
// weights are given.

#ifdef __SSE2__
// By hand: eight products, added in pairs, are one instruction, and compilers find it in neither.

__m128i load(const void* samples) {
  return _mm_loadu_si128(static_cast<const __m128i*>(samples));
}

__m128i weightPair(const int16_t* weights) {
  int32_t pair;
  memcpy(&pair, weights, sizeof pair);
  return _mm_set1_epi32(pair);
}

void weighRowsNarrow(const uint8_t* const* rows, const int16_t* weights, int count, size_t width,
                     int16_t* weighed) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i half = _mm_set1_epi32(1 << (kRowShift - 1));
  for (size_t x = 0; x < width; x += sizeof(__m128i)) {
    __m128i sums[4] = {half, half, half, half};
    for (int i = 0; i < count; i += 2) {
      const __m128i pair = weightPair(weights + i);
      const __m128i a = load(rows[i] + x);
      const __m128i b = load(rows[i + 1] + x);
      const __m128i low = _mm_unpacklo_epi8(a, b);
      const __m128i high = _mm_unpackhi_epi8(a, b);
      sums[0] = _mm_add_epi32(sums[0], _mm_madd_epi16(_mm_unpacklo_epi8(low, zero), pair));
      sums[1] = _mm_add_epi32(sums[1], _mm_madd_epi16(_mm_unpackhi_epi8(low, zero), pair));
      sums[2] = _mm_add_epi32(sums[2], _mm_madd_epi16(_mm_unpacklo_epi8(high, zero), pair));
      sums[3] = _mm_add_epi32(sums[3], _mm_madd_epi16(_mm_unpackhi_epi8(high, zero), pair));
    }
    for (__m128i& sum : sums) {
      sum = _mm_srai_epi32(sum, kRowShift);
    }
    auto* const to = reinterpret_cast<__m128i*>(weighed + x);
    _mm_storeu_si128(to, _mm_packs_epi32(sums[0], sums[1]));
    _mm_storeu_si128(to + 1, _mm_packs_epi32(sums[2], sums[3]));
  }
}

// The same in steps of twice the width, where the processor has them. They work on two halves side
// by side, which are put into order at the end.
__attribute__((target("avx2"))) void weighRowsWide(const uint8_t* const* rows,
                                                   const int16_t* weights, int count, size_t width,
                                                   int16_t* weighed) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i half = _mm256_set1_epi32(1 << (kRowShift - 1));
  for (size_t x = 0; x < width; x += sizeof(__m256i)) {
    __m256i sums[4] = {half, half, half, half};
    for (int i = 0; i < count; i += 2) {
      const __m256i pair = _mm256_broadcastd_epi32(weightPair(weights + i));
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[i] + x));
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[i + 1] + x));
      const __m256i low = _mm256_unpacklo_epi8(a, b);
      const __m256i high = _mm256_unpackhi_epi8(a, b);
      const __m256i words[4] = {_mm256_unpacklo_epi8(low, zero), _mm256_unpackhi_epi8(low, zero),
                                _mm256_unpacklo_epi8(high, zero), _mm256_unpackhi_epi8(high, zero)};
      for (int j = 0; j < 4; j++) {
        sums[j] = _mm256_add_epi32(sums[j], _mm256_madd_epi16(words[j], pair));
      }
    }
    for (__m256i& sum : sums) {
      sum = _mm256_srai_epi32(sum, kRowShift);
    }
    const __m256i low = _mm256_packs_epi32(sums[0], sums[1]);
    const __m256i high = _mm256_packs_epi32(sums[2], sums[3]);
    auto* const to = reinterpret_cast<__m256i*>(weighed + x);
    _mm256_storeu_si256(to, _mm256_permute2x128_si256(low, high, 0x20));
    _mm256_storeu_si256(to + 1, _mm256_permute2x128_si256(low, high, 0x31));
  }
}

void weighRows(const uint8_t* const* rows, const int16_t* weights, int count, size_t width,
               int16_t* weighed) {
  static const bool isWide = __builtin_cpu_supports("avx2");
  (isWide ? weighRowsWide : weighRowsNarrow)(rows, weights, count, width, weighed);
}

// Four sums of one window, to be added up.
__m128i weighWindow(const int16_t* samples, const int16_t* weights, int stride) {
  __m128i sums = _mm_madd_epi16(load(samples), load(weights));
  for (int i = kWeightsAtOnce; i < stride; i += kWeightsAtOnce) {
    sums = _mm_add_epi32(sums, _mm_madd_epi16(load(samples + i), load(weights + i)));
  }
  return sums;
}

void weighWindows(const int16_t* row, const int* firsts, const int16_t* weights, int stride,
                  int count, uint8_t* samples) {
  const __m128i half = _mm_set1_epi32(1 << (kWeightBits + kRowBits - 1));
  for (int x = 0; x < count; x += kWindowsAtOnce) {
    const __m128i a = weighWindow(row + firsts[x], weights, stride);
    const __m128i b = weighWindow(row + firsts[x + 1], weights + stride, stride);
    const __m128i c = weighWindow(row + firsts[x + 2], weights + 2 * stride, stride);
    const __m128i d = weighWindow(row + firsts[x + 3], weights + 3 * stride, stride);
    weights += kWindowsAtOnce * stride;
    const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
    const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
    const __m128i sums = _mm_add_epi32(_mm_unpacklo_epi64(ab, cd), _mm_unpackhi_epi64(ab, cd));
    const __m128i shifted = _mm_srai_epi32(_mm_add_epi32(sums, half), kWeightBits + kRowBits);
    const __m128i words = _mm_packs_epi32(shifted, shifted);
    const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    memcpy(samples + x, &bytes, kWindowsAtOnce);
  }
}

#else

void weighRows(const uint8_t* const* rows, const int16_t* weights, int count, size_t width,
               int16_t* weighed) {
  for (size_t x = 0; x < width; x += kSamplesAtOnce) {
    int32_t sums[kSamplesAtOnce];
    for (int32_t& sum : sums) {
      sum = 1 << (kRowShift - 1);
    }
    for (int i = 0; i < count; i++) {
      for (size_t j = 0; j < kSamplesAtOnce; j++) {
        sums[j] += static_cast<int16_t>(rows[i][x + j]) * weights[i];
      }
    }
    for (size_t j = 0; j < kSamplesAtOnce; j++) {
      weighed[x + j] = static_cast<int16_t>(sums[j] >> kRowShift);
    }
  }
}

void weighWindows(const int16_t* row, const int* firsts, const int16_t* weights, int stride,
                  int count, uint8_t* samples) {
  for (int x = 0; x < count; x++) {
    int32_t sum = 1 << (kWeightBits + kRowBits - 1);
    for (int i = 0; i < stride; i++) {
      sum += row[firsts[x] + i] * weights[i];
    }
    samples[x] = static_cast<uint8_t>(std::clamp(sum >> (kWeightBits + kRowBits), 0, 255));
    weights += stride;
  }
}

#endif

}  // namespace

PlaneResampler::Filter PlaneResampler::makeFilter(const PlaneSide& from, int newSize,
                                                  double newCovered) {
  const double scale = from.covered / newCovered;
  const double stretch = std::max(1.0, scale);
  const auto windows = static_cast<size_t>(roundUp(newSize, kWindowsAtOnce));
  Filter filter;
  filter.firsts.resize(windows);
  filter.ends.resize(windows);
  for (size_t i = 0; i < static_cast<size_t>(newSize); i++) {
    const double centre = (static_cast<double>(i) + 0.5) * scale;
    const double reach = kLobes * stretch;
    const int first = std::clamp(static_cast<int>(std::floor(centre - reach)), 0, from.samples - 1);
    const int end =
        std::clamp(static_cast<int>(std::ceil(centre + reach)), first + 1, from.samples);
    filter.firsts[i] = first;
    filter.ends[i] = end;
    filter.stride = std::max(filter.stride, roundUp(end - first, kWeightsAtOnce));
  }
  filter.weights.resize(windows * static_cast<size_t>(filter.stride));
  std::vector<double> exact;
  for (size_t i = 0; i < static_cast<size_t>(newSize); i++) {
    const double centre = (static_cast<double>(i) + 0.5) * scale;
    exact.clear();
    for (int j = filter.firsts[i]; j < filter.ends[i]; j++) {
      exact.push_back(lanczos((j + 0.5 - centre) / stretch));
    }
    roundWeights(exact, &filter.weights[i * static_cast<size_t>(filter.stride)]);
  }
  return filter;
}

PlaneResampler::PlaneResampler(const PlaneSide& fromWidth, const PlaneSide& fromHeight,
                               const PlaneOf<uint8_t>& toPlane, double toWidthCovered,
                               double toHeightCovered)
    : width(fromWidth.samples),
      isCopy(fromWidth.samples == toPlane.width && fromHeight.samples == toPlane.height &&
             fromWidth.covered == toWidthCovered && fromHeight.covered == toHeightCovered),
      to(toPlane) {
  if (isCopy) return;
  across = makeFilter(fromWidth, to.width, toWidthCovered);
  down = makeFilter(fromHeight, to.height, toHeightCovered);
  keptRowBytes = static_cast<size_t>(roundUp(width, kSamplesAtOnce));
  kept.resize(keptRowBytes * static_cast<size_t>(down.stride));
  windowRows.resize(static_cast<size_t>(down.stride));
  weighedRow.resize(keptRowBytes + static_cast<size_t>(across.stride));
  newRow.resize(across.firsts.size());
}

uint8_t* PlaneResampler::keptRow(int y) {
  return &kept[static_cast<size_t>(y % down.stride) * keptRowBytes];
}

void PlaneResampler::takeRow(const uint8_t* samples, ptrdiff_t stepBytes) {
  const int y = taken++;
  if (made >= to.height) return;
  if (isCopy) {
    putRow(samples, stepBytes, made++);
    return;
  }
  uint8_t* const place = keptRow(y);
  if (stepBytes == 1) {
    std::copy_n(samples, width, place);
  } else {
    for (int x = 0; x < width; x++) {
      place[x] = samples[x * stepBytes];
    }
  }
  while (made < to.height && down.ends[static_cast<size_t>(made)] <= taken) {
    makeRow(made);
    putRow(newRow.data(), 1, made++);
  }
}

void PlaneResampler::makeRow(int y) {
  const auto window = static_cast<size_t>(y);
  const int first = down.firsts[window];
  const int count = down.ends[window] - first;
  for (int i = 0; i < count; i++) {
    windowRows[static_cast<size_t>(i)] = keptRow(first + i);
  }
  // An odd row is paired with itself, of weight zero.
  if (count % 2 != 0) windowRows[static_cast<size_t>(count)] = keptRow(first);
  weighRows(windowRows.data(), &down.weights[window * static_cast<size_t>(down.stride)],
            roundUp(count, 2), keptRowBytes, weighedRow.data());
  weighWindows(weighedRow.data(), across.firsts.data(), across.weights.data(), across.stride,
               static_cast<int>(across.firsts.size()), newRow.data());
}

void PlaneResampler::putRow(const uint8_t* samples, ptrdiff_t stepBytes, int y) const {
  uint8_t* const place = to.samples + y * to.rowBytes;
  if (stepBytes == 1 && to.stepBytes == 1) {
    std::copy_n(samples, to.width, place);
    return;
  }
  for (int x = 0; x < to.width; x++) {
    place[x * to.stepBytes] = samples[x * stepBytes];
  }
}

void resamplePlane(const PlaneOf<const uint8_t>& from, const PlaneOf<uint8_t>& to) {
  const PlaneSide width = {from.width, static_cast<double>(from.width)};
  const PlaneSide height = {from.height, static_cast<double>(from.height)};
  PlaneResampler resampler(width, height, to, to.width, to.height);
  for (int y = 0; y < from.height; y++) {
    resampler.takeRow(from.samples + y * from.rowBytes, from.stepBytes);
  }
}
