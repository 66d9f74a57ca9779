// What a photo tells beside its picture, and how much of it goes along.
#ifndef FIT_METADATA_PHOTO_METADATA_H
#define FIT_METADATA_PHOTO_METADATA_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/jpeg/jpeg_segments.h"

enum class KeepMetadata {
  All,
  NoLocation,  // the fields of the Exif and the colour profile; nothing that tells a place
  None,        // the colour profile alone: without it the colours are others
};

// What goes besides, in this order, where there is little room.
enum class Shed { Nothing, Thumbnail, Extras, AllButExif, AllButProfile, Everything };

using Segments = std::vector<JpegSegment>;

class PhotoMetadata {
 public:
  // Takes the segments of a photo's header.
  explicit PhotoMetadata(Segments segments);

  // Exif's, 1 to 8; 1 where none is told.
  int orientation() const;
  size_t bytes() const;
  // The profile tells of inks, which the new picture does not have.
  void dropProfile();

  // What may be kept of it, less what is shed. The orientation stays, even of the Exif that goes.
  Segments kept(KeepMetadata keep, Shed shed) const;
  // The same for a picture that was turned upright; its thumbnail, which was not, always goes.
  Segments keptUpright(KeepMetadata keep, Shed shed) const;

 private:
  Segments all;
};

size_t bytesOf(const Segments& segments);

// The file with these segments in place of its own, and nothing behind the picture; the picture's
// own bytes stay. Empty when the file is no whole JPEG.
std::vector<uint8_t> withMetadata(std::span<const uint8_t> file, const Segments& segments);

#endif
