// Turns a picture upright.
#ifndef FIT_PICTURE_TURNING_H
#define FIT_PICTURE_TURNING_H

#include "fit/picture/picture.h"

// An orientation is Exif's, 1 to 8 (Exif 2.32, 4.6.4); any other value is 1, upright already.

// Whether width and height change places.
bool turnsSides(int orientation);
PictureSize turnedSize(const PictureSize& size, int orientation);
void turnUpright(int orientation, Picture* picture);

#endif
