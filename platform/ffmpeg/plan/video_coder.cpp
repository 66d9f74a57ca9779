#include "platform/ffmpeg/plan/video_coder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <string>

namespace {

constexpr double kStepOfOne = 3.2;  // MPEG-4's quantiser 1, in H.264's steps at QP 0
constexpr double kQpPerDoubling = 6;
constexpr int kCoarsestQp = 51;

}  // namespace

bool hasQuantiser(const Options& options) {
  static const std::set<std::string> names = {"mpeg4",     "h263",       "h263p",     "flv",
                                              "msmpeg4",   "wmv1",       "wmv2",      "libx264",
                                              "msmpeg4v2", "mpeg1video", "mpeg2video"};
  return names.count(options.videoCodec) > 0;
}

bool isH264(const Options& options) {
  return options.videoCodec == "libx264";
}

int coarsestQuantiser(const Options& options) {
  return isH264(options) ? static_cast<int>(std::lround(quantiserOfQp(kCoarsestQp))) : 31;
}

int longestSide(const Options& options) {
  return isH264(options) ? 1920 : 0;
}

double mostSampledPixels(const Options& options) {
  return isH264(options) ? 5e5 : std::numeric_limits<double>::infinity();
}

double quantiserOfQp(double qp) {
  return std::exp2(qp / kQpPerDoubling) / kStepOfOne;
}

int qpOfQuantiser(double quantiser) {
  const double qp = kQpPerDoubling * std::log2(kStepOfOne * quantiser);
  return static_cast<int>(std::clamp(std::lround(qp), 0L, static_cast<long>(kCoarsestQp)));
}
