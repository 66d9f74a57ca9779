// A photo as it is looked at beside another one: upright, and no larger than photos are compared.
#ifndef FIT_PHOTO_PHOTO_VIEW_H
#define FIT_PHOTO_PHOTO_VIEW_H

#include <cstdint>
#include <span>
#include <vector>

#include "fit/failure/fit_failure.h"
#include "fit/photo/fit_photo.h"

struct PhotoView {
  PictureSize whole;  // the photo's, upright
  // As large as viewSize(whole) says: all of its luma, then all of each colour difference.
  std::vector<uint8_t> samples;
};

constexpr int64_t kMostViewBytes = int64_t{3} * kJudgedSide * kJudgedSide;

// With the longest side of kJudgedSide, unless the photo is smaller.
PictureSize viewSize(const PictureSize& whole);

// Borrows the formats, which are what there is beside JPEG; nullptr: nothing.
bool viewPhoto(std::span<const uint8_t> file, PhotoFormats* formats, PhotoView* view,
               FitFailure* failure);

#endif
