#include "platform/ffmpeg/probe/probe_report.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <numeric>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/text/plain_text.h"

namespace {

constexpr size_t kMaxTags = 64;
constexpr size_t kMaxTagLength = 256;

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...) {
  char text[512];
  va_list values;
  va_start(values, format);
  vsnprintf(text, sizeof(text), format, values);
  va_end(values);
  return text;
}

// Numbers are put together by hand where they have fractions: printf's point follows the locale.
std::string withPoint(int64_t whole, int digits, int64_t fraction) {
  return std::to_string(whole) + formatted(".%0*" PRId64, digits, fraction);
}

std::string metadataText(const MediaFacts& facts) {
  if (facts.metadata.empty()) return "";
  std::string text = "  Metadata:\n";
  size_t count = 0;
  for (const auto& [key, value] : facts.metadata) {
    if (++count > kMaxTags) break;
    text += formatted("    %-15.40s : %s\n", asciiLine(key).c_str(),
                      asciiLine(value.substr(0, kMaxTagLength)).c_str());
  }
  return text;
}

std::string durationText(const MediaFacts& facts) {
  const int64_t centiseconds = facts.durationUs / 10000;  // cut, not rounded
  const int64_t seconds = centiseconds / 100;
  std::string text = formatted("  Duration: %02" PRId64 ":%02" PRId64 ":%02" PRId64 ".%02" PRId64,
                               seconds / 3600, seconds / 60 % 60, seconds % 60, centiseconds % 100);
  const int64_t start = facts.startUs < 0 ? -facts.startUs : facts.startUs;
  text += std::string(", start: ") + (facts.startUs < 0 ? "-" : "");
  text += withPoint(start / 1000000, 6, start % 1000000);
  return text + formatted(", bitrate: %" PRId64 " kb/s\n", facts.bitsPerSecond / 1000);
}

std::string streamHead(int index, const std::string& language) {
  return formatted("    Stream #0.%d", index) + (language.empty() ? "" : "(" + language + ")") +
         ": ";
}

std::string aspectText(const VideoFacts& video) {
  if (!video.pixelAspect.isKnown()) return "";
  const int64_t width = int64_t{video.width} * video.pixelAspect.num;
  const int64_t height = int64_t{video.height} * video.pixelAspect.den;
  const int64_t divisor = std::gcd(width, height);
  if (divisor == 0) return "";
  return formatted(" [PAR %d:%d DAR %" PRId64 ":%" PRId64 "]", video.pixelAspect.num,
                   video.pixelAspect.den, width / divisor, height / divisor);
}

std::string videoText(const VideoFacts& video) {
  std::string text = streamHead(video.index, video.language) + "Video: " + video.codec;
  if (!video.pixelFormat.empty()) text += ", " + video.pixelFormat;
  if (video.width > 0) text += formatted(", %dx%d", video.width, video.height) + aspectText(video);
  const std::string nominal = rateText(video.nominalRate.value());
  text += formatted(", %" PRId64 " kb/s, ", video.bitsPerSecond / 1000);
  text += rateText(video.averageRate.value()) + " fps, " + nominal + " tbr, ";
  return text + rateText(1 / video.timeBase.value()) + " tbn, " + nominal + " tbc\n";
}

std::string audioText(const AudioFacts& audio) {
  std::string text = streamHead(audio.index, audio.language) + "Audio: " + audio.codec;
  text += formatted(", %d Hz, ", audio.sampleRateHz) + audio.layout;
  if (!audio.sampleFormat.empty()) text += ", " + audio.sampleFormat;
  if (audio.bitsPerSecond > 0) text += formatted(", %" PRId64 " kb/s", audio.bitsPerSecond / 1000);
  return text + "\n";
}

}  // namespace

std::string rateText(double rate) {
  const int64_t hundredths = std::llround(rate * 100);
  if (hundredths % 100 != 0) return withPoint(hundredths / 100, 2, hundredths % 100);
  const int64_t whole = hundredths / 100;
  if (whole == 0 || whole % 1000 != 0) return std::to_string(whole);
  return std::to_string(whole / 1000) + "k";
}

std::string probeReport(const MediaFacts& facts) {
  std::string text = "Input #0, " + facts.format + ", from '" + asciiLine(facts.path) + "':\n" +
                     metadataText(facts) + durationText(facts);
  std::map<int, std::string> streams;  // in the file's order
  if (facts.video) streams[facts.video->index] = videoText(*facts.video);
  for (const AudioFacts& audio : facts.audio) {
    streams[audio.index] = audioText(audio);
  }
  for (const auto& [index, line] : streams) {
    text += line;
  }
  return text;
}
