// Sets the two picture dimensions that an Exif segment records, in place.
#ifndef PLATFORM_JPEG_EXIF_DIMENSIONS_H
#define PLATFORM_JPEG_EXIF_DIMENSIONS_H

#include <cstddef>
#include <cstdint>

// Sets PixelXDimension and PixelYDimension of the Exif directory where the payload of an APP1
// segment ("Exif", two zero bytes, a TIFF structure of either byte order) has them, and changes no
// other byte; the space they take stays the same. Returns whether one was set: a payload that lacks
// them, is no Exif, or points outside of itself is left as it was.
bool setExifDimensions(uint8_t* payload, size_t sizeBytes, uint32_t width, uint32_t height);

#endif
