// A decoded picture: 8 bits a sample, as JPEG tells colours (ITU-T T.871), full range.
#ifndef FIT_PICTURE_PICTURE_H
#define FIT_PICTURE_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <vector>

// One component. The samples of a row are followed by copies of the last one up to `stride`, a
// multiple of kSamplesAtOnce: an encoder takes whole blocks.
struct Plane {
  static constexpr int kSamplesAtOnce = 16;

  Plane() = default;
  // Throws std::bad_alloc.
  Plane(int width, int height);

  uint8_t* row(int y) { return samples.data() + static_cast<ptrdiff_t>(y) * stride; }
  const uint8_t* row(int y) const { return samples.data() + static_cast<ptrdiff_t>(y) * stride; }
  // Fills what follows the last sample of each row.
  void pad();

  int width = 0;
  int height = 0;
  int stride = 0;
  // How many samples the picture covers: of 501 samples that were made of 1,001 pixels, 500.5.
  double coveredWidth = 0;
  double coveredHeight = 0;
  std::vector<uint8_t> samples;
};

struct PictureSize {
  int width = 0;
  int height = 0;

  int longestSide() const { return width > height ? width : height; }
  double pixels() const { return static_cast<double>(width) * height; }
  bool operator==(const PictureSize&) const = default;
};

// To the nearest pixel, and no side less than one.
PictureSize scaledSize(const PictureSize& size, double scale);

// One plane is a gray picture, three are luma and the two colour differences, these of any size.
struct Picture {
  PictureSize size;
  std::vector<Plane> planes;
};

// The plane scaled, with a Lanczos filter. Where nothing changes it is a copy.
Plane scaledPlane(const Plane& from, int width, int height);

// The picture scaled; colour differences at half its width and height, rounded up.
Picture scaledPicture(const Picture& from, const PictureSize& size);

#endif
