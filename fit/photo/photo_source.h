// The photo that is to fit, as it was taken.
#ifndef FIT_PHOTO_PHOTO_SOURCE_H
#define FIT_PHOTO_PHOTO_SOURCE_H

#include <functional>
#include <span>

#include "fit/metadata/photo_metadata.h"
#include "fit/photo/fit_photo.h"
#include "fit/picture/jpeg_reading.h"

class PhotoSource {
 public:
  // Borrows the file's bytes.
  explicit PhotoSource(std::span<const uint8_t> file);

  // Reads the header. The others are for afterwards.
  bool open(FitFailure* failure);
  const PhotoMetadata& metadata() const { return told; }
  // Upright.
  PictureSize size() const;
  // Whether the whole file can be decoded; leaves no picture.
  bool check(FitFailure* failure);
  // Decodes as much of it as a picture of so many pixels needs, upright. To be called once.
  bool read(double pixels, const std::function<void(double)>& onShare, Picture* picture,
            FitFailure* failure);

 private:
  bool fail(FitFailure* failure) const;

  std::span<const uint8_t> file;
  JpegReading reading;
  PhotoMetadata told{{}};
  std::string error;
};

#endif
