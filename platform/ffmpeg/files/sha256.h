// The digest that names files after paths.
#ifndef PLATFORM_FFMPEG_FILES_SHA256_H
#define PLATFORM_FFMPEG_FILES_SHA256_H

#include <string>

// The SHA-256 (FIPS 180-4) of `text` in hexadecimal.
std::string sha256Hex(const std::string& text);

#endif
