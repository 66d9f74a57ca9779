// The picture that a decoder's rows become: GRAY8 or I420, of any size.
//
// Each component is scaled as its rows come, from its own sampling straight to that of the new
// picture, so that no picture of the source's size is ever held. What is told in other colours than
// the new picture's is scaled in those and converted at the end; full range, as JPEG has it.
//
// Thread: any, one at a time. Errors: throws std::bad_alloc.
#ifndef PLATFORM_GSTREAMER_PHOTO_PICTURE_CANVAS_H
#define PLATFORM_GSTREAMER_PHOTO_PICTURE_CANVAS_H

#include <gst/video/video.h>

#include <vector>

#include "platform/jpeg/jpeg_colours.h"
#include "platform/jpeg/jpeg_decoder.h"
#include "platform/jpeg/plane_resampler.h"

class PictureCanvas {
 public:
  // The decoder is started and borrowed, as are the samples: as many bytes as the picture's layout,
  // GRAY8 (of gray pictures alone) or I420, says.
  PictureCanvas(const JpegDecoder& decoder, const GstVideoInfo& layout, uint8_t* samples);

  // Takes what the decoder's last readRows() brought.
  void takeRows();
  // To be called behind the last rows: the samples are the picture.
  void finish();

  // What a canvas takes besides the samples, about.
  static size_t workBytes(const JpegDecoder& decoder, const GstVideoInfo& layout);

 private:
  Rgb pixel(int x, int y) const;
  void convert();

  const JpegDecoder& decoder;
  const GstVideoInfo layout;
  uint8_t* const samples;
  std::vector<std::vector<uint8_t>> scaled;  // of each component that is converted at the end
  std::vector<PlaneResampler> resamplers;    // one for each component
};

#endif
