// The photo that is to fit, as it was taken.
#ifndef FIT_PHOTO_PHOTO_SOURCE_H
#define FIT_PHOTO_PHOTO_SOURCE_H

#include <functional>

#include "fit/failure/fit_failure.h"
#include "fit/metadata/photo_metadata.h"
#include "fit/picture/picture.h"

class PhotoSource {
 public:
  virtual ~PhotoSource() = default;

  // Reads the header. The others are for afterwards.
  virtual bool open(FitFailure* failure) = 0;
  virtual const PhotoMetadata& metadata() const = 0;
  // Upright.
  virtual PictureSize size() const = 0;
  // Whether the whole file can be decoded; leaves no picture.
  virtual bool check(FitFailure* failure) = 0;
  // Decodes as much of it as a picture of so many pixels needs, upright. To be called once.
  virtual bool read(double pixels, const std::function<void(double)>& onShare, Picture* picture,
                    FitFailure* failure) = 0;
};

#endif
