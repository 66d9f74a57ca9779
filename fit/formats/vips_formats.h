// The formats of pictures that libvips reads and writes.
//
// Thread: one; libvips and the libraries under it start threads of their own.
#ifndef FIT_FORMATS_VIPS_FORMATS_H
#define FIT_FORMATS_VIPS_FORMATS_H

#include "fit/photo/photo_formats.h"

class VipsFormats : public PhotoFormats {
 public:
  // Loads what it takes, while files can be opened. Only the loaders and savers that are told of
  // here can be reached afterwards, whatever a file says that it is. False where there is no
  // libvips to work with; *error says why.
  static bool start(std::string* error);

  std::unique_ptr<PhotoSource> source(PhotoKind kind, std::span<const uint8_t> file) override;
  bool writes(PhotoKind kind) const override;
  bool write(PhotoKind kind, const Picture& picture, int quality, const Segments& metadata,
             std::vector<uint8_t>* file, std::string* error) override;
};

#endif
