// Numbers of a JSON text that no double holds, such as 1e400: JSON allows them, the JSON library
// would refuse the whole text for one.
#ifndef PLATFORM_DSJSON_LARGE_NUMBERS_H
#define PLATFORM_DSJSON_LARGE_NUMBERS_H

#include <cstddef>
#include <string>
#include <vector>

namespace dsjson {

struct LargeNumber {
  size_t index;  // counting the text's numbers from 0
  double value;  // an infinity
};

// Returns the text with a small number in the place of each large one, spelled so that it is JSON
// exactly when the large one was, and appends what was replaced. Takes time linear in the text.
std::string withoutLargeNumbers(const std::string& text, std::vector<LargeNumber>* replaced);

}  // namespace dsjson

#endif
