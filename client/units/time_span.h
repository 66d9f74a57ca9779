// Times as people write and read them: "12.5" seconds, "1:02:03".
#ifndef CLIENT_UNITS_TIME_SPAN_H
#define CLIENT_UNITS_TIME_SPAN_H

#include <optional>
#include <string>

// Reads seconds, with or without a fraction. Nothing when the text is something else or the time is
// beyond what the service can count in milliseconds, some 24 days.
std::optional<double> parseSeconds(const std::string& text);

// "0:06", "1:02:03": to the nearest second.
std::string formatTime(double seconds);

#endif
