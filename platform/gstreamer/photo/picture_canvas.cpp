#include "platform/gstreamer/photo/picture_canvas.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

PlaneOf<uint8_t> planeOf(const GstVideoInfo& layout, uint8_t* samples, guint i) {
  return {samples + GST_VIDEO_INFO_COMP_OFFSET(&layout, i), GST_VIDEO_INFO_COMP_WIDTH(&layout, i),
          GST_VIDEO_INFO_COMP_HEIGHT(&layout, i), GST_VIDEO_INFO_COMP_STRIDE(&layout, i), 1};
}

bool isConverted(JpegColours colours) {
  return colours != JpegColours::Gray && colours != JpegColours::YCbCr;
}

}  // namespace

PictureCanvas::PictureCanvas(const JpegDecoder& source, const GstVideoInfo& pictureLayout,
                             uint8_t* pictureSamples)
    : decoder(source), layout(pictureLayout), samples(pictureSamples) {
  const bool converts = isConverted(decoder.colours());
  const int width = GST_VIDEO_INFO_WIDTH(&layout);
  const int height = GST_VIDEO_INFO_HEIGHT(&layout);
  const auto& planes = decoder.planes();
  scaled.resize(converts ? planes.size() : 0);
  resamplers.reserve(planes.size());
  for (size_t i = 0; i < planes.size(); i++) {
    const JpegPlane& plane = planes[i];
    PlaneOf<uint8_t> to = {nullptr, width, height, width, 1};
    double toWidth = width;
    double toHeight = height;
    if (converts) {
      scaled[i].resize(static_cast<size_t>(width) * static_cast<size_t>(height));
      to.samples = scaled[i].data();
    } else {
      to = planeOf(layout, samples, static_cast<guint>(i));
      toWidth /= i == 0 ? 1 : 2;
      toHeight /= i == 0 ? 1 : 2;
    }
    resamplers.emplace_back(PlaneSide{plane.width, plane.pictureWidth},
                            PlaneSide{plane.height, plane.pictureHeight}, to, toWidth, toHeight);
  }
}

void PictureCanvas::takeRows() {
  for (size_t i = 0; i < resamplers.size(); i++) {
    for (int y = 0; y < decoder.rowCount(i); y++) {
      resamplers[i].takeRow(decoder.row(i, y), 1);
    }
  }
}

void PictureCanvas::finish() {
  if (!scaled.empty()) {
    convert();
  } else if (resamplers.size() == 1 && GST_VIDEO_INFO_N_COMPONENTS(&layout) > 1) {
    const size_t lumaBytes = GST_VIDEO_INFO_COMP_OFFSET(&layout, 1);
    memset(samples + lumaBytes, kNeutralDifference, GST_VIDEO_INFO_SIZE(&layout) - lumaBytes);
  }
}

Rgb PictureCanvas::pixel(int x, int y) const {
  const auto place = static_cast<size_t>(y) * static_cast<size_t>(GST_VIDEO_INFO_WIDTH(&layout)) +
                     static_cast<size_t>(x);
  std::array<int, 4> values = {};
  for (size_t i = 0; i < scaled.size(); i++) {
    values[i] = scaled[i][place];
  }
  return toRgb(decoder.colours(), decoder.isInverted(), values);
}

// Two rows and columns at a time, whose mean has the one colour difference.
void PictureCanvas::convert() {
  const PlaneOf<uint8_t> luma = planeOf(layout, samples, 0);
  const PlaneOf<uint8_t> blue = planeOf(layout, samples, 1);
  const PlaneOf<uint8_t> red = planeOf(layout, samples, 2);
  for (int y = 0; y < luma.height; y += 2) {
    for (int x = 0; x < luma.width; x += 2) {
      Rgb sum = {2, 2, 2};
      for (int corner = 0; corner < 4; corner++) {
        const int px = std::min(x + corner % 2, luma.width - 1);
        const int py = std::min(y + corner / 2, luma.height - 1);
        const Rgb colour = pixel(px, py);
        luma.samples[py * luma.rowBytes + px] = lumaOf(colour);
        sum = {sum.red + colour.red, sum.green + colour.green, sum.blue + colour.blue};
      }
      const Rgb mean = {sum.red / 4, sum.green / 4, sum.blue / 4};
      blue.samples[y / 2 * blue.rowBytes + x / 2] = blueDifferenceOf(mean);
      red.samples[y / 2 * red.rowBytes + x / 2] = redDifferenceOf(mean);
    }
  }
}

size_t PictureCanvas::workBytes(const JpegDecoder& decoder, const GstVideoInfo& layout) {
  constexpr size_t kRows = 200;  // of decoder and filters, of all components
  const size_t rowBytes = kRows * static_cast<size_t>(decoder.width());
  if (!isConverted(decoder.colours())) return rowBytes;
  return rowBytes + 4 * static_cast<size_t>(GST_VIDEO_INFO_WIDTH(&layout)) *
                        static_cast<size_t>(GST_VIDEO_INFO_HEIGHT(&layout));
}
