// The word that somebody may have meant who wrote another one.
#ifndef CLIENT_COMMANDS_NEAREST_WORD_H
#define CLIENT_COMMANDS_NEAREST_WORD_H

#include <string>
#include <vector>

// The one of `known` that takes the fewest letters put in, left out or changed, or the first that
// begins with `word`; "" when all of them are far from it.
std::string nearestWord(const std::string& word, const std::vector<std::string>& known);

// ": did you mean resize-image?", or "" when nothing is near.
std::string didYouMean(const std::string& word, const std::vector<std::string>& known);

#endif
