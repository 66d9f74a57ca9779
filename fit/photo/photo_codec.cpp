#include "fit/photo/photo_codec.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fit/photo/photo_view.h"
#include "fit/picture/jpeg_reading.h"
#include "fit/picture/jpeg_writing.h"
#include "fit/picture/similarity.h"

namespace {

// What a search takes of other formats than JPEG, in encodes.
constexpr double kSooner = 1;
constexpr double kFartherOfAvif = 1.5;
constexpr double kLeastEncodes = 0.3;

// As an encoder takes it: its colour differences are halved.
bool isHalved(const Picture& picture) {
  return picture.planes.size() == 1 || (picture.planes[1].width == (picture.size.width + 1) / 2 &&
                                        picture.planes[1].height == (picture.size.height + 1) / 2 &&
                                        picture.planes[2].width == picture.planes[1].width &&
                                        picture.planes[2].height == picture.planes[1].height);
}

}  // namespace

PhotoCodec::PhotoCodec(Picture picture, const PictureSize& wholeSize, PhotoTarget photoTarget,
                       PhotoProgress* photoProgress)
    : source(std::move(picture)),
      whole(wholeSize),
      target(std::move(photoTarget)),
      progress(photoProgress) {
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

double PhotoCodec::nearest(double coarseness) const {
  return isJpeg() ? coarseness : coarsenessOfQuality(qualityOfCoarseness(coarseness));
}

bool PhotoCodec::encode(double scale, double coarseness, int64_t* bytes) {
  lastSize = scaledSize(whole, scale);
  const Picture& picture = pictureOf(lastSize);
  const bool isWritten =
      isJpeg() ? writeJpeg(picture, coarseness, &last, &error)
               : target.formats->write(target.format, picture, qualityOfCoarseness(coarseness),
                                       target.metadata, &last, &error);
  if (!isWritten) return false;
  const double share = isJpeg() ? finishedShare : 1;
  *bytes = std::lround(static_cast<double>(last.size()) * share);
  progress->encoded(lastSize.pixels());
  return true;
}

bool PhotoCodec::decode(const std::vector<uint8_t>& file, const PictureSize& size,
                        Picture* picture) {
  if (isJpeg()) return readJpeg(file, picture, &error);
  const auto made = target.formats->source(target.format, file);
  FitFailure failure;
  if (made->open(&failure) && made->read(size.pixels(), nullptr, picture, &failure)) return true;
  error = failure.message;
  return false;
}

bool PhotoCodec::compare(const std::vector<uint8_t>& file, const PictureSize& size, double* alike) {
  Picture picture;
  if (!decode(file, size, &picture)) return false;
  *alike = similarity(reference, scaledPlane(picture.planes[0], reference.width, reference.height));
  progress->judged();
  return true;
}

bool PhotoCodec::judge(double* alike) {
  return compare(last, lastSize, alike);
}

bool PhotoCodec::finish(int64_t* bytes) {
  if (!isJpeg()) {
    finished = last;
  } else if (!makeProgressive(last, &finished, &error)) {
    return false;
  }
  finishedShare = static_cast<double>(finished.size()) / static_cast<double>(last.size());
  *bytes = static_cast<int64_t>(finished.size());
  progress->finished(lastSize.pixels());
  return true;
}

void PhotoCodec::keep() {
  kept.swap(finished);
  keptPicture = lastSize;
}

void PhotoCodec::expect(const SearchRest& rest) {
  SearchRest ours = rest;
  if (!isJpeg()) {
    // A format of few steps meets the budget sooner, and is finished when it is encoded. Where AVIF
    // looks best is farther from where the search begins.
    const double factor = target.format == PhotoKind::Avif ? kFartherOfAvif : 1;
    ours.encodes = std::max(rest.encodes * factor - kSooner, kLeastEncodes);
    ours.finishes = 0;
  }
  progress->expect(ours, lastSize.pixels());
}

bool PhotoCodec::judgeKept(double* alike) {
  scaled = {};  // done with
  return compare(kept, keptPicture, alike);
}
