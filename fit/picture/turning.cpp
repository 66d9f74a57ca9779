#include "fit/picture/turning.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int kTile = 32;  // samples; rows of one side are columns of the other

// Where the samples of a turned row and column come from.
struct Walk {
  ptrdiff_t first;
  ptrdiff_t right;
  ptrdiff_t down;
};

Walk walkOf(int orientation, const Plane& from) {
  const ptrdiff_t row = from.stride;
  const ptrdiff_t lastColumn = from.width - 1;
  const ptrdiff_t lastRow = (from.height - 1) * row;
  switch (orientation) {
    case 2:
      return {lastColumn, -1, row};
    case 3:
      return {lastRow + lastColumn, -1, -row};
    case 4:
      return {lastRow, 1, -row};
    case 5:
      return {0, row, 1};
    case 6:
      return {lastRow, -row, 1};
    case 7:
      return {lastRow + lastColumn, -row, -1};
    case 8:
      return {lastColumn, row, -1};
    default:
      return {0, 1, row};
  }
}

Plane turned(const Plane& from, int orientation) {
  const bool swaps = turnsSides(orientation);
  Plane to(swaps ? from.height : from.width, swaps ? from.width : from.height);
  const Walk walk = walkOf(orientation, from);
  for (int top = 0; top < to.height; top += kTile) {
    for (int left = 0; left < to.width; left += kTile) {
      for (int y = top; y < std::min(top + kTile, to.height); ++y) {
        const uint8_t* sample =
            from.samples.data() + walk.first + y * walk.down + left * walk.right;
        uint8_t* const row = to.row(y);
        for (int x = left; x < std::min(left + kTile, to.width); ++x, sample += walk.right) {
          row[x] = *sample;
        }
      }
    }
  }
  to.pad();
  return to;
}

}  // namespace

bool turnsSides(int orientation) {
  return orientation >= 5 && orientation <= 8;
}

PictureSize turnedSize(const PictureSize& size, int orientation) {
  return turnsSides(orientation) ? PictureSize{size.height, size.width} : size;
}

void turnUpright(int orientation, Picture* picture) {
  if (orientation < 2 || orientation > 8) return;
  picture->size = turnedSize(picture->size, orientation);
  for (Plane& plane : picture->planes) {
    plane = turned(plane, orientation);
  }
}
