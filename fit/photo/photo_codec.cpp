#include "fit/photo/photo_codec.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fit/photo/photo_view.h"
#include "fit/picture/jpeg_reading.h"
#include "fit/picture/jpeg_writing.h"
#include "fit/picture/similarity.h"

namespace {

// As an encoder takes it: its colour differences are halved.
bool isHalved(const Picture& picture) {
  return picture.planes.size() == 1 || (picture.planes[1].width == (picture.size.width + 1) / 2 &&
                                        picture.planes[1].height == (picture.size.height + 1) / 2 &&
                                        picture.planes[2].width == picture.planes[1].width &&
                                        picture.planes[2].height == picture.planes[1].height);
}

}  // namespace

PhotoCodec::PhotoCodec(Picture picture, const PictureSize& wholeSize, PhotoProgress* photoProgress)
    : source(std::move(picture)), whole(wholeSize), progress(photoProgress) {
  const PictureSize judged = viewSize(whole);
  reference = scaledPlane(source.planes[0], std::min(judged.width, source.size.width),
                          std::min(judged.height, source.size.height));
}

const Picture& PhotoCodec::pictureOf(const PictureSize& size) {
  if (size == source.size && isHalved(source)) return source;
  if (scaled.size != size) {
    scaled = {};  // before the next one takes its memory
    scaled = scaledPicture(source, size);
  }
  return scaled;
}

bool PhotoCodec::encode(double scale, double coarseness, int64_t* bytes) {
  lastSize = scaledSize(whole, scale);
  if (!writeJpeg(pictureOf(lastSize), coarseness, &last, &error)) return false;
  *bytes = static_cast<int64_t>(last.size());
  progress->encoded(lastSize.pixels());
  return true;
}

bool PhotoCodec::judge(double* alike) {
  Picture picture;
  if (!readJpeg(last, &picture, &error)) return false;
  *alike = similarity(reference, scaledPlane(picture.planes[0], reference.width, reference.height));
  progress->judged(lastSize.pixels());
  return true;
}

void PhotoCodec::keep() {
  kept = last;
  keptPicture = lastSize;
}
