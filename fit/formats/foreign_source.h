// A photo that libvips reads: row by row where the format allows it, and never from a file's name.
#ifndef FIT_FORMATS_FOREIGN_SOURCE_H
#define FIT_FORMATS_FOREIGN_SOURCE_H

#include <span>

#include "fit/formats/vips_ref.h"
#include "fit/photo/photo_kind.h"
#include "fit/photo/photo_source.h"

class ForeignSource : public PhotoSource {
 public:
  // A larger one is refused by its header: decoding may take several bytes a pixel.
  static constexpr double kMostPixels = 64e6;

  // Borrows the file's bytes.
  ForeignSource(PhotoKind kind, std::span<const uint8_t> file);

  bool open(FitFailure* failure) override;
  const PhotoMetadata& metadata() const override { return told; }
  PictureSize size() const override;
  bool check(FitFailure* failure) override;
  // Transparent parts become white.
  bool read(double pixels, const std::function<void(double)>& onShare, Picture* picture,
            FitFailure* failure) override;

 private:
  bool load(ImageRef* loaded, FitFailure* failure) const;

  const PhotoKind kind;
  std::span<const uint8_t> file;
  ImageRef image;
  PhotoMetadata told{{}};
};

#endif
