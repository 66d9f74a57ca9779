#include "platform/ffmpeg/plan/complexity.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <string>
#include <vector>

#include "platform/ffmpeg/plan/video_coder.h"

namespace {

constexpr double kLambdaPerQuantiser = 118;
constexpr double kIntra = 1;  // "type" of a frame coded by itself

// The number behind " NAME:" in a line, or nothing.
std::optional<double> numberBehind(std::string_view line, const std::string& name) {
  const size_t at = line.find(" " + name + ":");
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view text = line.substr(at + name.size() + 2);
  double value = 0;
  const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure != std::errc()) return std::nullopt;
  return value;
}

// "I" and "i" of x264's.
bool isIntraLetter(std::string_view line) {
  const size_t at = line.find(" type:");
  return at != std::string_view::npos && at + 6 < line.size() && tolower(line[at + 6]) == 'i';
}

struct Frame {
  bool isIntra = false;
  double quantiser = 0;
  double bits = 0;
};

std::optional<Frame> frameOf(std::string_view line) {
  const auto type = numberBehind(line, "type");
  const auto quantiser = numberBehind(line, "q");
  if (!quantiser) return std::nullopt;
  Frame frame = {isIntraLetter(line), quantiserOfQp(*quantiser)};
  if (type) frame = {*type == kIntra, *quantiser / kLambdaPerQuantiser};
  for (const char* part : {"itex", "ptex", "tex", "mv", "misc"}) {
    frame.bits += numberBehind(line, part).value_or(0);
  }
  return frame;
}

double spreadOf(const std::vector<Frame>& frames) {
  double sum = 0;
  double squares = 0;
  for (const Frame& frame : frames) {
    sum += frame.quantiser;
    squares += frame.quantiser * frame.quantiser;
  }
  const auto count = static_cast<double>(frames.size());
  return sum > 0 ? std::sqrt(std::max(squares * count / (sum * sum) - 1, 0.0)) : 0;
}

}  // namespace

double Complexity::bitsOf(double frameCount, double intra) const {
  const double perIntra = intraFrames > 0 ? intraBits / intraFrames : 0;
  const double perInter = interFrames > 0 ? interBits / interFrames : perIntra;
  return perIntra * intra + perInter * (frameCount - intra);
}

void Complexity::add(const Complexity& other) {
  const double all = bits() + other.bits();
  if (all > 0) quantiser = (quantiser * bits() + other.quantiser * other.bits()) / all;
  spread = std::max(spread, other.spread);
  intraFrames += other.intraFrames;
  interFrames += other.interFrames;
  intraBits += other.intraBits;
  interBits += other.interBits;
}

std::optional<Complexity> parsePassLog(std::string_view log) {
  std::vector<Frame> frames;
  Complexity sum;
  for (size_t start = 0; start < log.size();) {
    const size_t end = std::min(log.find(';', start), log.size());
    const auto frame = frameOf(log.substr(start, end - start));
    if (frame) {
      frames.push_back(*frame);
      (frame->isIntra ? sum.intraFrames : sum.interFrames) += 1;
      (frame->isIntra ? sum.intraBits : sum.interBits) += frame->bits;
      sum.quantiser += frame->quantiser * frame->bits;  // the sum; the mean comes at the end
    }
    start = end + 1;
  }
  if (frames.empty() || sum.bits() <= 0) return std::nullopt;
  sum.quantiser /= sum.bits();
  sum.spread = spreadOf(frames);
  return sum;
}
