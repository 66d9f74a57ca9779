#include "fit/photo/photo_view.h"

#include <algorithm>

#include "fit/photo/any_source.h"

namespace {

constexpr uint8_t kNoColour = 128;

void append(const Plane& plane, std::vector<uint8_t>* samples) {
  for (int y = 0; y < plane.height; ++y) {
    samples->insert(samples->end(), plane.row(y), plane.row(y) + plane.width);
  }
}

}  // namespace

PictureSize viewSize(const PictureSize& whole) {
  return scaledSize(whole, std::min(1.0, kJudgedSide / (whole.longestSide() + 0.0)));
}

bool viewPhoto(std::span<const uint8_t> file, PhotoFormats* formats, PhotoView* view,
               FitFailure* failure) {
  const auto source = anySource(file, formats, failure);
  if (!source || !source->open(failure)) return false;
  view->whole = source->size();
  const PictureSize size = viewSize(view->whole);
  Picture picture;
  if (!source->read(size.pixels(), nullptr, &picture, failure)) return false;
  for (const Plane& plane : picture.planes) {
    append(scaledPlane(plane, size.width, size.height), &view->samples);
  }
  view->samples.resize(static_cast<size_t>(size.width) * static_cast<size_t>(size.height) * 3,
                       kNoColour);
  return true;
}
