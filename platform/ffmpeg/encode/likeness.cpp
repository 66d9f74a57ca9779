#include "platform/ffmpeg/encode/likeness.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/ffmpeg/encode/video_filter.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/media_input.h"

namespace {

constexpr double kLongestSide = 1280;
constexpr double kPartShare = 0.1;  // of the clip
constexpr double kLeastSeconds = 0.6;
constexpr double kMostSeconds = 2;
constexpr double kMiddles[] = {0.5, 0.15, 0.85};

int even(double length) {
  return std::max(2, 2 * static_cast<int>(std::lround(length / 2)));
}

PictureSize scaledBy(PictureSize size, double scale) {
  return {even(size.width * scale), even(size.height * scale)};
}

// At which both are shown.
PictureSize shownSize(const VideoFacts& video) {
  const PictureSize seen = seenSize(video);
  return scaledBy(seen, std::min(1.0, kLongestSide / std::max(seen.width, seen.height)));
}

std::string text(PictureSize size) {
  return std::to_string(size.width) + ":" + std::to_string(size.height);
}

// The bars that fill a picture of another shape up are cut off.
std::string cropFor(PictureSize picture, PictureSize seen) {
  const double scale = std::min(static_cast<double>(picture.width) / seen.width,
                                static_cast<double>(picture.height) / seen.height);
  const PictureSize inner = scaledBy(seen, scale);
  return "crop=" +
         text({std::min(inner.width, picture.width), std::min(inner.height, picture.height)});
}

// A little before a frame, so that the same one is the first of both, whose times are rounded.
double startBeside(double start, double framesPerSecond) {
  constexpr double kBefore = 0.25;  // frames
  return std::max(0.0, (std::floor(start * framesPerSecond) - kBefore) / framesPerSecond);
}

void addPart(const SamplePart& part, const std::string& path, std::vector<std::string>* line) {
  line->insert(line->end(),
               {"-ss", std::to_string(part.start), "-t", std::to_string(part.seconds)});
  line->insert(line->end(), {"-protocol_whitelist", kInputProtocols, "-format_whitelist",
                             kInputFormats, "-max_pixels", std::to_string(kMaxPixels)});
  line->insert(line->end(), {"-i", "file:" + path});
}

}  // namespace

std::vector<std::string> likenessLine(const Options& options, const MediaFacts& facts,
                                      const SamplePart& part, const std::string& made,
                                      const Rung& picture, const EncodePaths& paths) {
  const PictureSize shown = shownSize(*facts.video);
  const std::string rate =
      std::to_string(picture.rate.num) + "/" + std::to_string(picture.rate.den);
  // A frame that is left out in one of them is held in both alike.
  const std::string pick = "fps=" + rate + ":start_time=0,";
  const std::string plain = ",setsar=1,format=yuv420p";
  const std::string filter = videoFilter(options, *facts.video, shown, paths.mapsTones);
  const std::string graph = "[0:V:0]" + pick + (filter.empty() ? "null" : filter) + plain + "[a];" +
                            "[1:V:0]" + pick + cropFor(picture.size, seenSize(*facts.video)) +
                            ",scale=" + text(shown) + ":flags=bicubic" + plain +
                            "[b];[a][b]ssim=shortest=1[c]";
  // The filter tells what it found behind its last frame, as a mere information.
  std::vector<std::string> line = {
      paths.program, "-nostdin",  "-hide_banner", "-nostats", "-loglevel",
      "info",        "-progress", "pipe:1",       "-threads", std::to_string(paths.threads)};
  const SamplePart beside = {startBeside(part.start, picture.rate.value()), part.seconds};
  addPart(beside, options.input, &line);
  addPart(beside, made, &line);
  line.insert(line.end(), {"-filter_complex", graph, "-map", "[c]", "-f", "null", "/dev/null"});
  return line;
}

std::vector<SamplePart> likenessParts(double clipSeconds, bool canJump) {
  const double seconds =
      std::min(std::clamp(clipSeconds * kPartShare, kLeastSeconds, kMostSeconds), clipSeconds);
  if (!canJump) return {{0, seconds}};
  std::vector<SamplePart> parts;
  for (const double middle : kMiddles) {
    const double start = clipSeconds * middle - seconds / 2;
    parts.push_back({std::clamp(start, 0.0, clipSeconds - seconds), seconds});
  }
  return parts;
}

std::optional<double> parseLikeness(std::string_view words) {
  constexpr std::string_view kMark = "SSIM Y:";
  const size_t at = words.rfind(kMark);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string number(words.substr(at + kMark.size(), 8));
  char* end = nullptr;
  const double value = strtod(number.c_str(), &end);
  if (end == number.c_str() || !(value >= 0 && value <= 1)) return std::nullopt;
  return value;
}
