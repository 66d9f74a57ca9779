// The pixels of a photo as it is looked at, decoded where a stranger's photo can do no harm: by a
// caged process of its own.
#ifndef CLIENT_COMPARE_PHOTO_PIXELS_H
#define CLIENT_COMPARE_PHOTO_PIXELS_H

#include <string>

#include "fit/picture/picture.h"

struct PhotoPixels {
  PictureSize whole;  // the photo's, upright
  Picture picture;    // its view (fit/photo/photo_view.h), of three planes
};

// On failure *error says why in one line.
bool readPhotoPixels(const std::string& path, PhotoPixels* pixels, std::string* error);

#endif
