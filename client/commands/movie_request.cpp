#include "client/commands/movie_request.h"

#include <glib.h>

#include <optional>

#include "client/units/bit_rate.h"
#include "client/units/byte_size.h"
#include "client/units/time_span.h"

namespace {

// What an option's text means to the service, or nothing when it means nothing.
using Read = std::optional<dsjson::JValue> (*)(const std::string& text);

std::optional<dsjson::JValue> readSize(const std::string& text) {
  const auto bytes = parseByteSize(text);
  return bytes ? std::make_optional<dsjson::JValue>(*bytes) : std::nullopt;
}

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

struct MovieOption {
  const char* name;
  const char* member;
  Read read;
  const char* examples;
};

const MovieOption kOptions[] = {
    {"--max-size", "maxOutputSize", readSize, "5M or 300k"},
    {"--max-bitrate", "maxBitrate", readRate, "500k or 1.5M"},
    {"--video-codec", "videoCodec", readName, "mpeg4, h263 or copy"},
    {"--audio-codec", "audioCodec", readName, "aac, amrnb or copy"},
    {"--video-bitrate", "videoBitrate", readRate, "500k or 1.5M"},
    {"--audio-bitrate", "audioBitrate", readRate, "64k or 12200"},
    {"--audio-rate", "audioSamplingRate", readRate, "22050 or 44.1k"},
    {"--pic-size", "picSize", readName, "320x240, qcif or auto"},
    {"--frame-rate", "videoFrameRate", readFrameRate, "15 or 29.97"},
    {"--start", "startOffset", readSeconds, "90 or 2.5"},
    {"--length", "clipLength", readSeconds, "10 or 2.5"},
    {"--passes", "passes", readPasses, "1 or 2"},
};

// The service drops these limits without a word when a stream is copied.
bool keepsLimits(const Arguments& arguments, std::string* error) {
  for (const char* codec : {"--video-codec", "--audio-codec"}) {
    for (const char* limit : {"--max-size", "--max-bitrate"}) {
      if (arguments.value(codec) == "copy" && arguments.has(limit)) {
        *error = std::string(limit) + " cannot be kept with " + codec + " copy";
        return false;
      }
    }
  }
  return true;
}

}  // namespace

std::set<std::string> movieOptions() {
  std::set<std::string> names;
  for (const MovieOption& option : kOptions) {
    names.insert(option.name);
  }
  return names;
}

bool putMovieOptions(const Arguments& arguments, dsjson::JValue* request, std::string* error) {
  for (const MovieOption& option : kOptions) {
    const auto text = arguments.value(option.name);
    if (!text) continue;
    const auto value = option.read(*text);
    if (!value) {
      *error = "\"" + *text + "\" is not a value of " + option.name + ": write " + option.examples;
      return false;
    }
    request->put(option.member, *value);
  }
  return keepsLimits(arguments, error);
}
