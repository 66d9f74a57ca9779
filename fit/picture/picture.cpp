#include "fit/picture/picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/jpeg/plane_resampler.h"

Plane::Plane(int planeWidth, int planeHeight)
    : width(planeWidth),
      height(planeHeight),
      stride((planeWidth + kSamplesAtOnce - 1) / kSamplesAtOnce * kSamplesAtOnce),
      coveredWidth(planeWidth),
      coveredHeight(planeHeight),
      samples(static_cast<size_t>(stride) * static_cast<size_t>(planeHeight)) {}

void Plane::pad() {
  for (int y = 0; y < height; ++y) {
    uint8_t* const end = row(y) + width;
    memset(end, end[-1], static_cast<size_t>(stride - width));
  }
}

PictureSize scaledSize(const PictureSize& size, double scale) {
  const auto side = [scale](int length) {
    return std::max(1, static_cast<int>(std::lround(length * scale)));
  };
  return {side(size.width), side(size.height)};
}

Plane scaledPlane(const Plane& from, int width, int height) {
  Plane to(width, height);
  PlaneResampler resampler({from.width, from.coveredWidth}, {from.height, from.coveredHeight},
                           {to.samples.data(), width, height, to.stride, 1}, width, height);
  for (int y = 0; y < from.height; ++y) {
    resampler.takeRow(from.row(y), 1);
  }
  to.pad();
  return to;
}

Picture scaledPicture(const Picture& from, const PictureSize& size) {
  Picture to;
  to.size = size;
  to.planes.push_back(scaledPlane(from.planes[0], size.width, size.height));
  for (size_t i = 1; i < from.planes.size(); ++i) {
    to.planes.push_back(scaledPlane(from.planes[i], (size.width + 1) / 2, (size.height + 1) / 2));
  }
  return to;
}
