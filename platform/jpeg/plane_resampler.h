// Scales one component of a picture with a Lanczos filter of three lobes, row by row.
//
// Where the picture shrinks the filter widens with it, so that detail finer than the new pixels
// becomes its mean instead of a false pattern. A constant picture stays exactly constant, to its
// edges, and nothing is shifted: the corners of both pictures are the same points.
//
// GStreamer's own converter does not do: for 8 bits a sample it has weights of 6 bits, whose sum
// misses one in rows and columns here and there; they come out up to eight levels too dark.
//
// Thread: any, one at a time.
// Errors: throws std::bad_alloc; what was written of the new plane then is undefined.
#ifndef PLATFORM_JPEG_PLANE_RESAMPLER_H
#define PLATFORM_JPEG_PLANE_RESAMPLER_H

#include <cstddef>
#include <cstdint>
#include <vector>

// 8 bits a sample, at least one sample; borrows the samples.
template <typename Sample>
struct PlaneOf {
  Sample* samples;
  int width;
  int height;
  ptrdiff_t rowBytes;   // from one row to the next
  ptrdiff_t stepBytes;  // from one sample of a row to the next
};

// The samples of a plane along one direction, and how many of them the picture covers: of 501
// samples that were made of 1,001 pixels, 500.5.
struct PlaneSide {
  int samples;
  double covered;
};

class PlaneResampler {
 public:
  // The new plane is borrowed. Takes as many rows' worth of memory as the filter is high: six times
  // the shrinkage.
  PlaneResampler(const PlaneSide& fromWidth, const PlaneSide& fromHeight,
                 const PlaneOf<uint8_t>& to, double toWidthCovered, double toHeightCovered);

  // Takes the next row of the old plane, from the top, and writes the new rows that it completes.
  void takeRow(const uint8_t* samples, ptrdiff_t stepBytes);

 private:
  // The samples of one direction that make each new one, and their weights: `stride` for each,
  // zeros behind those of the window.
  struct Filter {
    std::vector<int> firsts;
    std::vector<int> ends;
    std::vector<int16_t> weights;
    int stride = 0;
  };

  static Filter makeFilter(const PlaneSide& from, int newSize, double newCovered);
  uint8_t* keptRow(int y);
  void makeRow(int y);
  void putRow(const uint8_t* samples, ptrdiff_t stepBytes, int y) const;

  const int width;    // of the old plane
  const bool isCopy;  // the new plane is the old one
  const PlaneOf<uint8_t> to;
  Filter across;
  Filter down;
  size_t keptRowBytes = 0;
  std::vector<uint8_t> kept;  // the last rows taken, as many as the filter is high
  std::vector<const uint8_t*> windowRows;
  std::vector<int16_t> weighedRow;  // between the two passes
  std::vector<uint8_t> newRow;
  int taken = 0;
  int made = 0;
};

// Takes a whole plane; the two may not overlap.
void resamplePlane(const PlaneOf<const uint8_t>& from, const PlaneOf<uint8_t>& to);

#endif
