#include "client/units/byte_size.h"

#include <glib.h>

#include <cmath>
#include <cstdio>

namespace {

// What a unit multiplies by, or 0 for no unit.
double unitFactor(std::string unit) {
  unit.erase(0, unit.find_first_not_of(' '));
  for (char& letter : unit) {
    letter = g_ascii_tolower(letter);
  }
  if (!unit.empty() && unit.back() == 'b') unit.pop_back();
  if (unit.empty()) return 1;
  if (unit == "k") return 1e3;
  if (unit == "m") return 1e6;
  if (unit == "g") return 1e9;
  if (unit == "ki") return 1024;
  if (unit == "mi") return 1024.0 * 1024;
  if (unit == "gi") return 1024.0 * 1024 * 1024;
  return 0;
}

}  // namespace

bool parseByteSize(const std::string& text, int32_t* bytes, std::string* error) {
  // What else strtod() takes begins with another letter, or is in hexadecimal.
  const bool isDecimal =
      text.find_first_of("0123456789.") == 0 && text.find_first_of("xX") == std::string::npos;
  char* unit = nullptr;
  const double number = isDecimal ? g_ascii_strtod(text.c_str(), &unit) : 0;
  const double factor = isDecimal && unit != text.c_str() ? unitFactor(unit) : 0;
  if (factor == 0) {
    *error = "\"" + text + "\" is not a size: write 300k or 1.5M";
    return false;
  }
  const double count = std::floor(number * factor);
  if (count < 1 || count > INT32_MAX) {
    *error = text + (count < 1 ? " is less than a byte"
                               : " is more than 2,147,483,647 bytes, the most the service takes");
    return false;
  }
  *bytes = static_cast<int32_t>(count);
  return true;
}

std::string formatByteSize(int64_t bytes) {
  const char* const units[] = {"B", "kB", "MB", "GB"};
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 999.5 && unit < 3) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  snprintf(text, sizeof text, unit > 0 && value < 9.95 ? "%.1f %s" : "%.0f %s", value, units[unit]);
  return text;
}
