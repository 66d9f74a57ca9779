// Which segments of a picture tell about the picture, and how they enter its new encoding.
#ifndef PLATFORM_JPEG_JPEG_METADATA_H
#define PLATFORM_JPEG_JPEG_METADATA_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/jpeg/jpeg_segments.h"

// Whether the segment still holds for a new encoding of the picture: Exif, XMP, IPTC, colour
// profile, comments, what makers of cameras and programs left. Not so what describes the old coding
// (APP14 "Adobe", APP0 "AVI1") or points into the old file (APP2 "MPF").
bool isJpegMetadata(const JpegSegment& segment);

bool isExif(const JpegSegment& segment);

// What the metadata of a small picture can do without, in the order in which it goes.
enum JpegShedding : unsigned {
  ShedNothing = 0,
  ShedThumbnail = 1,    // the small picture in the Exif
  ShedExtendedXmp = 2,  // what of the XMP is beyond its first segment
  ShedMakerNote = 4,
};

// Where the metadata would take more bytes than the picture itself, sheds one after the other until
// it does not, or nothing is left that may go. Returns what went. The segments are otherwise
// untouched.
unsigned shedJpegMetadata(size_t pictureBytes, std::vector<JpegSegment>* metadata);

// The new beginning of an encoded picture.
struct JpegHead {
  std::vector<uint8_t> bytes;  // SOI and the segments
  size_t restOffset = 0;       // where in the encoded picture that goes on
  size_t leftOut = 0;          // segments too long for their two length bytes
};

// Puts the metadata behind the SOI of a whole encoded picture, byte for byte and in order, but the
// JFIF goes first and the two pixel dimensions in the first Exif segment become the encoded
// picture's. The encoder's own JFIF remains only where the metadata tells no density of its own.
// Returns false, and leaves the head as it was, if the bytes are no JPEG picture.
bool makeJpegHead(const uint8_t* encoded, size_t sizeBytes,
                  const std::vector<JpegSegment>& metadata, JpegHead* head);

#endif
