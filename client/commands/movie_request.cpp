#include "client/commands/movie_request.h"

#include <glib.h>

#include "client/units/bit_rate.h"
#include "client/units/time_span.h"

namespace {

std::optional<dsjson::JValue> readRate(const std::string& text) {
  const auto bitsPerSecond = parseBitRate(text);
  return bitsPerSecond ? std::make_optional<dsjson::JValue>(*bitsPerSecond) : std::nullopt;
}

std::optional<dsjson::JValue> readSeconds(const std::string& text) {
  const auto seconds = parseSeconds(text);
  return seconds ? std::make_optional<dsjson::JValue>(*seconds) : std::nullopt;
}

std::optional<dsjson::JValue> readFrameRate(const std::string& text) {
  char* end = nullptr;
  const double rate = g_ascii_strtod(text.c_str(), &end);
  if (*end != '\0' || !(rate > 0 && rate <= 1000)) return std::nullopt;
  return dsjson::JValue(rate);
}

std::optional<dsjson::JValue> readPasses(const std::string& text) {
  if (text != "1" && text != "2") return std::nullopt;
  return dsjson::JValue(text == "1" ? 1 : 2);
}

std::optional<dsjson::JValue> readName(const std::string& text) {
  if (text.empty() || g_utf8_validate(text.c_str(), -1, nullptr) == FALSE) return std::nullopt;
  return dsjson::JValue(text);
}

const MovieOption kOptions[] = {
    {"--max-bitrate", "maxBitrate", readRate, "500k or 1.5M", "RATE", "of the whole movie"},
    {"--video-codec", "videoCodec", readName, "mpeg4, h263 or copy", "NAME", "mpeg4, h263 or copy"},
    {"--audio-codec", "audioCodec", readName, "aac, amrnb or copy", "NAME", "aac, amrnb or copy"},
    {"--video-bitrate", "videoBitrate", readRate, "500k or 1.5M", "RATE", "of the pictures"},
    {"--audio-bitrate", "audioBitrate", readRate, "64k or 12200", "RATE", "of the sound"},
    {"--audio-rate", "audioSamplingRate", readRate, "22050 or 44.1k", "HERTZ",
     "sound samples per second"},
    {"--pic-size", "picSize", readName, "320x240, qcif or auto", "WxH",
     "or qcif, cif; auto with h263"},
    {"--frame-rate", "videoFrameRate", readFrameRate, "15 or 29.97", "RATE", "pictures per second"},
    {"--start", "startOffset", readSeconds, "90 or 2.5", "SECONDS",
     "where the part to keep begins"},
    {"--length", "clipLength", readSeconds, "10 or 2.5", "SECONDS", "how long that part is"},
    {"--passes", "passes", readPasses, "1 or 2", "1|2",
     "how often IN is read; unless told, 2 where 1 fails"},
};

bool isCopied(const dsjson::JValue& request, const char* codec) {
  std::string name;
  return request[codec].asString(name) == dsjson::CONV_OK && name == "copy";
}

}  // namespace

std::span<const MovieOption> movieOptions() {
  return kOptions;
}

bool keepsLimits(const dsjson::JValue& request, std::string* error) {
  for (const char* codec : {"video", "audio"}) {
    if (!isCopied(request, (codec + std::string("Codec")).c_str())) continue;
    for (const auto& [option, member] :
         {std::pair("--size", kMovieSize), std::pair("--max-bitrate", "maxBitrate")}) {
      int32_t limit = 0;
      if (request[member].asNumber(limit) == dsjson::CONV_MISSING) continue;
      *error = std::string(option) + " cannot be kept with --" + codec + "-codec copy";
      return false;
    }
  }
  return true;
}
