// Scales one component of a picture with a Lanczos filter of three lobes.
//
// Where the picture shrinks the filter widens with it, so that detail finer than the new pixels
// becomes its mean instead of a false pattern. A constant picture stays exactly constant, to its
// edges, and nothing is shifted: the corners of both pictures are the same points.
//
// GStreamer's own converter does not do: for 8 bits a sample it has weights of 6 bits, whose sum
// misses one in rows and columns here and there; they come out up to eight levels too dark.
//
// Thread: any. Errors: throws std::bad_alloc; what was written of the new plane then is undefined.
#ifndef PLATFORM_GSTREAMER_PHOTO_PLANE_RESAMPLER_H
#define PLATFORM_GSTREAMER_PHOTO_PLANE_RESAMPLER_H

#include <cstddef>
#include <cstdint>

// 8 bits a sample, at least one sample; borrows the samples.
template <typename Sample>
struct PlaneOf {
  Sample* samples;
  int width;
  int height;
  ptrdiff_t rowBytes;   // from one row to the next
  ptrdiff_t stepBytes;  // from one sample of a row to the next
};

// Takes a few rows' worth of memory besides the two planes, which may not overlap.
void resamplePlane(const PlaneOf<const uint8_t>& from, const PlaneOf<uint8_t>& to);

#endif
