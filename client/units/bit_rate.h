// Bitrates as people write and read them: "64k", "1.5M", "287 kbit/s".
#ifndef CLIENT_UNITS_BIT_RATE_H
#define CLIENT_UNITS_BIT_RATE_H

#include <cstdint>
#include <optional>
#include <string>

// Reads bits per second: a number, with or without a fraction, then nothing, k or M (thousands).
// Nothing when the text is something else or the rate is not within 1 to 2,147,483,647.
std::optional<int32_t> parseBitRate(const std::string& text);

// "950 bit/s", "287 kbit/s", "1.5 Mbit/s".
std::string formatBitRate(double bitsPerSecond);

#endif
