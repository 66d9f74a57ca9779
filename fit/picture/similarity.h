// How alike two pictures look: the structural similarity index (Wang, Bovik, Sheikh and Simoncelli,
// IEEE Transactions on Image Processing 13(4), 2004) of their luma, over windows of 8 x 8 samples
// that overlap by half, with equal weights.
#ifndef FIT_PICTURE_SIMILARITY_H
#define FIT_PICTURE_SIMILARITY_H

#include "fit/picture/picture.h"

// 1 is the same. The planes have the same size; what is left of whole blocks of 4 x 4 at the right
// and the bottom is not looked at. Of planes less than 8 samples wide or high it is 1.
double similarity(const Plane& a, const Plane& b);

#endif
