// A picture of a photo before and after, side by side, with their sizes and how alike they are.
#ifndef CLIENT_COMPARE_COMPARISON_H
#define CLIENT_COMPARE_COMPARISON_H

#include <string>

// Writes a PNG. *similarity is the SSIM of the two (fit/picture/similarity.h), measured at the
// size at which both are shown: the first one's, with a longest side of at most 1280 pixels. On
// failure *error says why in one line.
bool writeComparison(const std::string& before, const std::string& after, const std::string& png,
                     double* similarity, std::string* error);

#endif
