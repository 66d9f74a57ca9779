// Encodes a picture as a JPEG with Huffman tables of its own.
#ifndef FIT_PICTURE_JPEG_WRITING_H
#define FIT_PICTURE_JPEG_WRITING_H

#include <cstdint>
#include <string>
#include <vector>

#include "fit/picture/picture.h"

// How coarse a picture is quantised: 1 is libjpeg's quality 50, 0.02 its 99, 2 its 25. It is a real
// number, so that a size can be met more closely than by a hundred qualities.
double coarsenessOfQuality(int quality);
int qualityOfCoarseness(double coarseness);

// A whole file, with JFIF and no other metadata. The colour differences of a picture of three
// planes have half its width and height, rounded up. False when there is no memory; *error says so.
bool writeJpeg(const Picture& picture, double coarseness, std::vector<uint8_t>* file,
               std::string* error);

// The same picture, sample by sample, as a progressive JPEG: some hundredths smaller, but three
// times the work. Of a file that writeJpeg() made.
bool makeProgressive(const std::vector<uint8_t>& file, std::vector<uint8_t>* progressive,
                     std::string* error);

#endif
