#include "platform/jpeg/jpeg_colours.h"

#include <algorithm>

namespace {

uint8_t toByte(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

uint8_t product(int a, int b) {
  return static_cast<uint8_t>((a * b + 127) / 255);
}

// JFIF's conversions, in units of 1 / 2^16.
constexpr int kBits = 16;
constexpr int kHalf = 1 << (kBits - 1);

constexpr int scaledUp(double factor) {
  return static_cast<int>(factor * (1 << kBits) + (factor < 0 ? -0.5 : 0.5));
}

Rgb fromYCbCr(int y, int cb, int cr) {
  cb -= kNeutralDifference;
  cr -= kNeutralDifference;
  return {toByte(y + ((scaledUp(1.402) * cr + kHalf) >> kBits)),
          toByte(y + ((scaledUp(-0.344136) * cb + scaledUp(-0.714136) * cr + kHalf) >> kBits)),
          toByte(y + ((scaledUp(1.772) * cb + kHalf) >> kBits))};
}

}  // namespace

Rgb toRgb(JpegColours colours, bool isInverted, const std::array<int, 4>& values) {
  if (colours == JpegColours::Rgb) return {values[0], values[1], values[2]};
  if (colours == JpegColours::YCbCr) return fromYCbCr(values[0], values[1], values[2]);
  Rgb light = {values[0], values[1], values[2]};
  // The three are the complements of such values; only Adobe's programs write them at all.
  if (colours == JpegColours::Ycck) light = fromYCbCr(values[0], values[1], values[2]);
  const bool isInk = colours == JpegColours::Ycck || !isInverted;
  const int black = isInverted ? values[3] : 255 - values[3];
  if (isInk) light = {255 - light.red, 255 - light.green, 255 - light.blue};
  return {product(light.red, black), product(light.green, black), product(light.blue, black)};
}

uint8_t lumaOf(const Rgb& c) {
  return toByte(
      (scaledUp(0.299) * c.red + scaledUp(0.587) * c.green + scaledUp(0.114) * c.blue + kHalf) >>
      kBits);
}

uint8_t blueDifferenceOf(const Rgb& c) {
  return toByte(kNeutralDifference + ((scaledUp(-0.168736) * c.red + scaledUp(-0.331264) * c.green +
                                       scaledUp(0.5) * c.blue + kHalf) >>
                                      kBits));
}

uint8_t redDifferenceOf(const Rgb& c) {
  return toByte(kNeutralDifference + ((scaledUp(0.5) * c.red + scaledUp(-0.418688) * c.green +
                                       scaledUp(-0.081312) * c.blue + kHalf) >>
                                      kBits));
}
