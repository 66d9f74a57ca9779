// The formats of pictures beside JPEG, for those who make photos fit: implemented where a library
// reads and writes them.
#ifndef FIT_PHOTO_PHOTO_FORMATS_H
#define FIT_PHOTO_PHOTO_FORMATS_H

#include <memory>
#include <string>
#include <vector>

#include "fit/metadata/photo_metadata.h"
#include "fit/photo/photo_kind.h"
#include "fit/photo/photo_source.h"
#include "fit/picture/picture.h"

class PhotoFormats {
 public:
  virtual ~PhotoFormats() = default;
  // The file is borrowed, and of a kind that isOtherPicture().
  virtual std::unique_ptr<PhotoSource> source(PhotoKind kind, std::span<const uint8_t> file) = 0;
  // Whether pictures of that kind can be written.
  virtual bool writes(PhotoKind kind) const = 0;
  // A whole file, with this metadata. The quality is 1 to 100, and means what the format makes of
  // it. False where it cannot be; *error says why.
  virtual bool write(PhotoKind kind, const Picture& picture, int quality, const Segments& metadata,
                     std::vector<uint8_t>* file, std::string* error) = 0;
};

#endif
