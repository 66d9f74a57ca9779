#include "client/units/shared_size.h"

#include <algorithm>
#include <numeric>

std::vector<int64_t> sharesOf(int64_t totalBytes, const std::vector<int64_t>& sizes) {
  std::vector<size_t> order(sizes.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return sizes[a] < sizes[b]; });
  std::vector<int64_t> shares(sizes.size());
  int64_t left = totalBytes;
  for (size_t i = 0; i < order.size(); ++i) {
    const int64_t equal = left / static_cast<int64_t>(order.size() - i);
    shares[order[i]] = std::min(sizes[order[i]], equal);
    left -= shares[order[i]];
  }
  return shares;
}
