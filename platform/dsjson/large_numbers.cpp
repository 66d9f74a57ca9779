#include "platform/dsjson/large_numbers.h"

#include <locale.h>
#include <stdlib.h>

#include <cmath>
#include <string_view>

namespace dsjson {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The end of the string that begins at the quote.
size_t endOfString(const std::string& text, size_t quote) {
  size_t at = quote + 1;
  while (at < text.size() && text[at] != '"') {
    at += text[at] == '\\' ? 2 : 1;
  }
  return at + 1;
}

// The end of what holds nothing but the characters of numbers.
size_t endOfNumber(const std::string& text, size_t begin) {
  const size_t end = text.find_first_not_of("0123456789+-.eE", begin);
  return end != std::string::npos ? end : text.size();
}

double valueOf(const std::string& number) {
  static locale_t const plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(number.c_str(), nullptr, plain);
}

// The exponent becomes 0; two digits of any other run tell whether it led with a zero.
std::string smallOfTheSameShape(const std::string& number) {
  std::string small;
  size_t run = 0;  // digits of the present run
  bool inExponent = false;
  for (const char c : number) {
    if (!isDigit(c)) {
      run = 0;
      inExponent = inExponent || c == 'e' || c == 'E';
      small += c;
    } else if (++run <= (inExponent ? 1 : 2)) {
      small += inExponent ? '0' : c;
    }
  }
  return small;
}

}  // namespace

std::string withoutLargeNumbers(const std::string& text, std::vector<LargeNumber>* replaced) {
  std::string small;
  small.reserve(text.size());
  size_t numbers = 0;
  for (size_t at = 0; at < text.size();) {
    size_t end = at + 1;
    if (text[at] == '"') {
      end = endOfString(text, at);
    } else if (text[at] == '-' || isDigit(text[at])) {
      end = endOfNumber(text, at);
      const std::string number = text.substr(at, end - at);
      const double value = valueOf(number);
      if (std::isinf(value)) {
        replaced->push_back({numbers, value});
        small += smallOfTheSameShape(number);
        at = end;
      }
      ++numbers;
    }
    small.append(text, at, end - at);
    at = end;
  }
  return small;
}

}  // namespace dsjson
