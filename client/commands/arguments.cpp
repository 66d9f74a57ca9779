#include "client/commands/arguments.h"

Arguments::Arguments(const std::vector<std::string>& all, const std::set<std::string>& valued,
                     const std::set<std::string>& flags) {
  bool onlyWords = false;
  for (size_t i = 0; i < all.size() && error.empty(); ++i) {
    const std::string& word = all[i];
    if (onlyWords || word.size() < 2 || word[0] != '-') {
      words.push_back(word);
      continue;
    }
    if (word == "--") {
      onlyWords = true;
      continue;
    }
    const size_t equals = word.find('=');
    const std::string option = word.substr(0, equals);
    if (flags.count(option) != 0 && equals == std::string::npos) {
      options[option];
    } else if (valued.count(option) == 0) {
      error = "unknown option " + word;
    } else if (equals != std::string::npos) {
      options[option] = word.substr(equals + 1);
    } else if (i + 1 < all.size()) {
      options[option] = all[++i];
    } else {
      error = option + " needs a value";
    }
  }
}

std::optional<std::string> Arguments::value(const std::string& option) const {
  const auto found = options.find(option);
  if (found == options.end()) return std::nullopt;
  return found->second;
}
