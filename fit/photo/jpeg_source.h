// A photo that is a JPEG.
#ifndef FIT_PHOTO_JPEG_SOURCE_H
#define FIT_PHOTO_JPEG_SOURCE_H

#include <span>
#include <string>

#include "fit/photo/photo_source.h"
#include "fit/picture/jpeg_reading.h"

class JpegSource : public PhotoSource {
 public:
  // Borrows the file's bytes.
  explicit JpegSource(std::span<const uint8_t> file);

  bool open(FitFailure* failure) override;
  const PhotoMetadata& metadata() const override { return told; }
  PictureSize size() const override;
  bool check(FitFailure* failure) override;
  bool read(double pixels, const std::function<void(double)>& onShare, Picture* picture,
            FitFailure* failure) override;

 private:
  bool fail(FitFailure* failure) const;

  std::span<const uint8_t> file;
  JpegReading reading;
  PhotoMetadata told{{}};
  std::string error;
};

#endif
