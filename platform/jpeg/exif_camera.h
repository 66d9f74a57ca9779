// Which camera took a photo.
#ifndef PLATFORM_JPEG_EXIF_CAMERA_H
#define PLATFORM_JPEG_EXIF_CAMERA_H

#include <cstdint>
#include <string>
#include <vector>

// Maker and model as the payload of an APP1 segment tells them (Exif 2.32, 4.6.4), the maker once:
// "Apple iPhone 6". "" where neither is told. What a terminal might obey stands as "?".
std::string exifCamera(const std::vector<uint8_t>& payload);

#endif
