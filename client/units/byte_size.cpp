#include "client/units/byte_size.h"

#include <glib.h>

#include <cmath>
#include <cstdio>

namespace {

// What a unit multiplies by, or 0 for no unit.
double unitFactor(std::string unit) {
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

std::optional<int32_t> parseByteSize(const std::string& text) {
  const size_t digits = text.find_first_not_of("0123456789.");
  const std::string number = text.substr(0, digits);
  const std::string unit = digits == std::string::npos ? "" : text.substr(digits);

  char* end = nullptr;
  const double value = g_ascii_strtod(number.c_str(), &end);
  if (number.empty() || *end != '\0') return std::nullopt;
  const double bytes = std::floor(value * unitFactor(unit));
  if (!(bytes >= 1 && bytes <= INT32_MAX)) return std::nullopt;
  return static_cast<int32_t>(bytes);
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
