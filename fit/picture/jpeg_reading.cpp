#include "fit/picture/jpeg_reading.h"

#include <algorithm>
#include <array>

#include "platform/jpeg/jpeg_colours.h"

namespace {

// The decoder keeps what it has not taken: little at a time costs it little.
constexpr size_t kPieceBytes = 64 << 10;

bool isConverted(JpegColours colours) {
  return colours != JpegColours::Gray && colours != JpegColours::YCbCr;
}

}  // namespace

JpegReading::JpegReading(std::span<const uint8_t> file) : rest(file) {}

template <typename Step>
JpegDecoder::Progress JpegReading::feed(const Step& step) {
  JpegDecoder::Progress progress = step();
  while (progress == JpegDecoder::Progress::NeedsData) {
    const auto piece = rest.first(std::min(kPieceBytes, rest.size()));
    rest = rest.subspan(piece.size());
    if (piece.empty()) {
      decoder.endData();
    } else {
      decoder.addData(piece.data(), piece.size());
    }
    progress = step();
    if (piece.empty() && progress == JpegDecoder::Progress::NeedsData) break;
  }
  return progress;
}

bool JpegReading::fail(std::string* error) const {
  *error = decoder.errorText();
  if (error->empty()) *error = "The picture breaks off";
  return false;
}

bool JpegReading::readHeader(std::string* error) {
  const auto progress = feed([this] { return decoder.readHeader(); });
  return progress == JpegDecoder::Progress::Ready || fail(error);
}

bool JpegReading::hasInk() const {
  const JpegColours colours = decoder.colours();
  return colours == JpegColours::Cmyk || colours == JpegColours::Ycck;
}

bool JpegReading::read(int eighths, Picture* picture, std::string* error,
                       const std::function<void(double)>& onRows) {
  if (decoder.coefficientBytes() > kMostCoefficientBytes) {
    *error = "The picture takes too much memory to decode";
    return false;
  }
  if (feed([&] { return decoder.start(eighths); }) != JpegDecoder::Progress::Ready) {
    return fail(error);
  }
  picture->planes.clear();
  for (const JpegPlane& plane : decoder.planes()) {
    Plane& made = picture->planes.emplace_back(plane.width, plane.height);
    made.coveredWidth = plane.pictureWidth;
    made.coveredHeight = plane.pictureHeight;
  }
  picture->size = {picture->planes[0].width, picture->planes[0].height};
  std::vector<int> filled(picture->planes.size());
  for (;;) {
    const auto progress = feed([this] { return decoder.readRows(); });
    if (progress == JpegDecoder::Progress::Ended) break;
    if (progress != JpegDecoder::Progress::Ready) return fail(error);
    for (size_t i = 0; i < filled.size(); ++i) {
      Plane& plane = picture->planes[i];
      for (int y = 0; y < decoder.rowCount(i) && filled[i] < plane.height; ++y) {
        std::copy_n(decoder.row(i, y), plane.width, plane.row(filled[i]++));
      }
    }
    if (onRows) onRows(static_cast<double>(filled[0]) / picture->size.height);
  }
  for (Plane& plane : picture->planes) {
    plane.pad();
  }
  if (isConverted(decoder.colours())) convert(picture);
  return true;
}

// Into luma and colour differences of full size, in place.
void JpegReading::convert(Picture* picture) const {
  std::vector<Plane>& planes = picture->planes;
  for (Plane& plane : planes) {
    plane = scaledPlane(plane, picture->size.width, picture->size.height);
  }
  for (size_t at = 0; at < planes[0].samples.size(); ++at) {
    std::array<int, 4> values = {};
    for (size_t i = 0; i < planes.size(); ++i) {
      values[i] = planes[i].samples[at];
    }
    const Rgb colour = toRgb(decoder.colours(), decoder.isInverted(), values);
    planes[0].samples[at] = lumaOf(colour);
    planes[1].samples[at] = blueDifferenceOf(colour);
    planes[2].samples[at] = redDifferenceOf(colour);
  }
  planes.resize(3);
}

bool readJpeg(std::span<const uint8_t> file, Picture* picture, std::string* error) {
  JpegReading reading(file);
  return reading.readHeader(error) && reading.read(8, picture, error);
}
