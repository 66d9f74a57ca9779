// Makes one photo fit: a picture of at most so many bytes that looks as much like the source as can
// be.
#ifndef FIT_PHOTO_FIT_PHOTO_H
#define FIT_PHOTO_FIT_PHOTO_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "fit/failure/fit_failure.h"
#include "fit/metadata/photo_metadata.h"
#include "fit/photo/photo_formats.h"
#include "fit/photo/photo_kind.h"
#include "fit/picture/picture.h"

struct PhotoRequest {
  int64_t maxBytes = 0;
  int maxWidth = 0;  // of the upright picture; 0 is no limit
  int maxHeight = 0;
  KeepMetadata keep = KeepMetadata::All;
  int qualityFloor = 10;  // 1 to 100; the picture is made smaller rather than coarser than that
  PhotoKind format = PhotoKind::Jpeg;  // or Webp or Avif
};

struct FittedPhoto {
  std::vector<uint8_t> file;
  PictureSize size;  // upright
  double similarity =
      1;            // to the source, of luma, seen at the smaller of the source and 1280 pixels
  int encodes = 0;  // 0: the source's own picture
};

// What a photo is, without making it anything else.
struct PhotoFacts {
  PhotoKind kind = PhotoKind::Unknown;
  PictureSize size;  // upright
  int orientation = 1;
  size_t metadataBytes = 0;
};

// The longest side at which pictures are compared.
constexpr int kJudgedSide = 1280;

// `onProgress` hears the share of the work that is done, never less than before. A file that fits
// as it is comes back byte for byte, if it is of the format asked for; one whose picture does, with
// its metadata shed. `formats` are what is read and written beside JPEG; nullptr: nothing.
bool fitPhoto(std::span<const uint8_t> file, const PhotoRequest& request, PhotoFormats* formats,
              const std::function<void(double)>& onProgress, FittedPhoto* photo,
              FitFailure* failure);

bool inspectPhoto(std::span<const uint8_t> file, PhotoFormats* formats, PhotoFacts* facts,
                  FitFailure* failure);

#endif
