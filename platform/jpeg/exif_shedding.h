// Makes an Exif segment shorter by what a small picture can do without.
//
// All take the payload of an APP1 segment, and leave one that they do not understand, that lacks
// the part, or whose parts overlap the segment's end, as it was. They return whether it is shorter.
#ifndef PLATFORM_JPEG_EXIF_SHEDDING_H
#define PLATFORM_JPEG_EXIF_SHEDDING_H

#include <cstdint>
#include <vector>

// Takes the second directory and its picture away where they stand behind all else, as cameras
// write them, with nothing but padding beside them. No other field moves: a maker note may point to
// places of its own knowledge.
bool dropExifThumbnail(std::vector<uint8_t>* payload);

// Takes the maker note away, and a thumbnail that is still there, and writes the other fields of
// the directories anew, one behind the other.
bool dropExifMakerNote(std::vector<uint8_t>* payload);

// Takes away what tells where a photo was taken, or may: the position, the maker note, whose fields
// nobody knows, and the thumbnail. Returns whether what is left tells no place, shorter or not;
// false leaves the payload as it was.
bool dropExifPlaces(std::vector<uint8_t>* payload);

#endif
