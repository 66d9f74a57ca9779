#include "platform/ffmpeg/plan/size_model.h"

#include <algorithm>
#include <cmath>

namespace {

// Of a clip that nothing else is known of.
constexpr double kUsualPower = 0.8;
constexpr double kUsualRatePower = 0.5;

}  // namespace

void SizeModel::take(const Sample& sample) {
  sampled = sample;
  factor = 1;
}

double SizeModel::shape(const Rung& picture, double quantiser) const {
  if (sampled) return sampled->videoBits(picture, quantiser, clipSeconds);
  return picture.pixels() * std::pow(picture.framesPerSecond, kUsualRatePower) /
         std::pow(quantiser, kUsualPower);
}

void SizeModel::learn(const Rung& picture, double quantiser, double bits) {
  const double reckoned = shape(picture, quantiser);
  if (bits > 0 && reckoned > 0) factor = bits / reckoned;
}

double SizeModel::bits(const Rung& picture, double quantiser) const {
  return factor * shape(picture, quantiser);
}

int SizeModel::quantiserFor(const Rung& picture, double mostBits, int coarsest) const {
  int quantiser = 1;
  while (quantiser <= coarsest && bits(picture, quantiser) > mostBits) {
    ++quantiser;
  }
  return quantiser;
}
