// Byte counts as people write and read them: "300k", "1.5M", "287 kB".
#ifndef CLIENT_UNITS_BYTE_SIZE_H
#define CLIENT_UNITS_BYTE_SIZE_H

#include <cstdint>
#include <string>

// Reads a count: a number, with or without a fraction or an exponent, then nothing or one of B, k,
// M, G (thousands), Ki, Mi, Gi (1,024s), each with or without a B behind it and blanks before it;
// the case of the letters does not matter. False when the text is something else or the count is
// not within 1 to 2,147,483,647, the range of the service; *error then says so.
bool parseByteSize(const std::string& text, int32_t* bytes, std::string* error);

// "950 B", "287 kB", "1.5 MB": three digits are enough to see whether it fits.
std::string formatByteSize(int64_t bytes);

#endif
