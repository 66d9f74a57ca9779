#include "client/units/time_span.h"

#include <glib.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

std::optional<double> parseSeconds(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) {
    return std::nullopt;
  }
  char* end = nullptr;
  const double seconds = g_ascii_strtod(text.c_str(), &end);
  if (*end != '\0' || seconds * 1000 > INT32_MAX) return std::nullopt;
  return seconds;
}

std::string formatTime(double seconds) {
  const int64_t whole = std::llround(seconds);
  const int hours = static_cast<int>(whole / 3600);
  const int minutes = static_cast<int>(whole / 60 % 60);
  char text[32];
  if (hours > 0) {
    snprintf(text, sizeof text, "%d:%02d:%02d", hours, minutes, static_cast<int>(whole % 60));
  } else {
    snprintf(text, sizeof text, "%d:%02d", minutes, static_cast<int>(whole % 60));
  }
  return text;
}
