#include "platform/ffmpeg/plan/complexity.h"

#include <charconv>
#include <string>

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

void addFrame(std::string_view line, Complexity* sum) {
  const auto type = numberBehind(line, "type");
  const auto quantiser = numberBehind(line, "q");
  if (!type || !quantiser) return;
  double bits = 0;
  for (const char* part : {"itex", "ptex", "mv", "misc"}) {
    bits += numberBehind(line, part).value_or(0);
  }
  (*type == kIntra ? sum->intraFrames : sum->interFrames) += 1;
  (*type == kIntra ? sum->intraBits : sum->interBits) += bits;
  sum->quantiser += *quantiser / kLambdaPerQuantiser;  // the sum; the mean comes at the end
}

}  // namespace

double Complexity::bitsOf(double frameCount, double intra) const {
  const double perIntra = intraFrames > 0 ? intraBits / intraFrames : 0;
  const double perInter = interFrames > 0 ? interBits / interFrames : perIntra;
  return perIntra * intra + perInter * (frameCount - intra);
}

void Complexity::add(const Complexity& other) {
  const int all = frames() + other.frames();
  if (all == 0) return;
  quantiser = (quantiser * frames() + other.quantiser * other.frames()) / all;
  intraFrames += other.intraFrames;
  interFrames += other.interFrames;
  intraBits += other.intraBits;
  interBits += other.interBits;
}

std::optional<Complexity> parsePassLog(std::string_view log) {
  Complexity sum;
  for (size_t start = 0; start < log.size();) {
    const size_t end = std::min(log.find(';', start), log.size());
    addFrame(log.substr(start, end - start), &sum);
    start = end + 1;
  }
  if (sum.frames() == 0) return std::nullopt;
  sum.quantiser /= sum.frames();
  return sum;
}
