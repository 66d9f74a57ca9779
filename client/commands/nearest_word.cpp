#include "client/commands/nearest_word.h"

#include <algorithm>
#include <numeric>

namespace {

// Levenshtein's distance, one row of his table at a time.
size_t distanceBetween(const std::string& from, const std::string& to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < to.size(); ++j) {
      const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& known) {
  std::string nearest;
  size_t least = 1 + word.size() / 3 + 1;
  for (const std::string& candidate : known) {
    const size_t distance = distanceBetween(word, candidate);
    if (distance >= least) continue;
    nearest = candidate;
    least = distance;
  }
  if (!nearest.empty() || word.empty()) return nearest;
  const auto longer = std::find_if(known.begin(), known.end(), [&](const std::string& candidate) {
    return candidate.rfind(word, 0) == 0;
  });
  return longer == known.end() ? "" : *longer;
}

std::string didYouMean(const std::string& word, const std::vector<std::string>& known) {
  const std::string nearest = nearestWord(word, known);
  return nearest.empty() ? "" : ": did you mean " + nearest + "?";
}
