#include "client/units/bit_rate.h"

#include <cstdio>

#include "client/units/byte_size.h"

std::optional<int32_t> parseBitRate(const std::string& text) {
  // The units of byte counts that are none of bitrates: a B would be taken for bytes.
  if (text.find_first_not_of("0123456789.kKmM") != std::string::npos) return std::nullopt;
  int32_t rate = 0;
  std::string ignored;
  return parseByteSize(text, &rate, &ignored) ? std::make_optional(rate) : std::nullopt;
}

std::string formatBitRate(double bitsPerSecond) {
  const char* unit = "bit/s";
  double value = bitsPerSecond;
  if (value >= 999.5e3) {
    unit = "Mbit/s";
    value /= 1e6;
  } else if (value >= 999.5) {
    unit = "kbit/s";
    value /= 1e3;
  }
  char text[48];
  snprintf(text, sizeof text, bitsPerSecond >= 999.5 && value < 9.95 ? "%.1f %s" : "%.0f %s", value,
           unit);
  return text;
}
