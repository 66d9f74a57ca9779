// The colours of one pixel, from what a JPEG picture tells to what the encoder takes.
//
// YCbCr is JFIF's (ITU-T T.871): the weights of ITU-R BT.601 over the full range.
#ifndef PLATFORM_JPEG_JPEG_COLOURS_H
#define PLATFORM_JPEG_JPEG_COLOURS_H

#include <array>
#include <cstdint>

#include "platform/jpeg/jpeg_decoder.h"

constexpr int kNeutralDifference = 128;

struct Rgb {
  int red;
  int green;
  int blue;
};

// The colour that the component values of a picture of three or four stand for, without regard to
// a profile. Of four values the last is black; inverted values tell how much light an ink leaves,
// others how much ink there is.
Rgb toRgb(JpegColours colours, bool isInverted, const std::array<int, 4>& values);

uint8_t lumaOf(const Rgb& colour);
uint8_t blueDifferenceOf(const Rgb& colour);
uint8_t redDifferenceOf(const Rgb& colour);

#endif
