// The orientation that an Exif segment records. All take the payload of an APP1 segment.
#ifndef FIT_METADATA_EXIF_FIELDS_H
#define FIT_METADATA_EXIF_FIELDS_H

#include <cstdint>
#include <vector>

// 1 to 8; 1 where none is told.
int exifOrientation(const std::vector<uint8_t>& payload);
// Says that the picture is upright, and no longer leads to a thumbnail, which is not. Nothing
// moves.
void setExifUpright(std::vector<uint8_t>* payload);
// The shortest payload that tells this orientation.
std::vector<uint8_t> exifOfOrientation(int orientation);

#endif
