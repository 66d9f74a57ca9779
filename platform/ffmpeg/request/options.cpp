#include "platform/ffmpeg/request/options.h"

#include <charconv>
#include <cmath>
#include <functional>
#include <map>
#include <string_view>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/parseutils.h>
}

namespace {

// Single-file containers. Muxers that write many files, or to other places, are not among them.
constexpr const char* kOutputFormats =
    "mp4,mov,3gp,3g2,ipod,psp,avi,matroska,webm,mpegts,mpeg,vob,dvd,flv,ogg,ogv,asf";

template <typename T>
bool parseNumber(std::string_view text, T* value) {
  const char* end = text.data() + text.size();
  const auto [rest, failure] = std::from_chars(text.data(), end, *value);
  return failure == std::errc() && rest == end;
}

bool parseSeconds(const std::string& text, double* seconds) {
  return parseNumber(text, seconds) && std::isfinite(*seconds) && *seconds >= 0 && *seconds < 1e9;
}

int64_t milliseconds(const std::string& text) {
  double seconds = 0;
  return parseSeconds(text, &seconds) ? std::llround(seconds * 1000) : 0;
}

// Digits with an optional k or M: "691k", "76799". 0 when the text is anything else.
int64_t bitsPerSecond(std::string_view text) {
  int64_t scale = 1;
  if (!text.empty() && (text.back() == 'k' || text.back() == 'K')) scale = 1000;
  if (!text.empty() && text.back() == 'M') scale = 1000000;
  if (scale != 1) text.remove_suffix(1);
  int64_t value = 0;
  if (!parseNumber(text, &value) || value <= 0 || value > 1000000000) return 0;
  return value * scale;
}

// Names of codecs and scalers come from outside and stand alone in an argument.
bool isName(const std::string& text) {
  constexpr std::string_view allowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_+-";
  return !text.empty() && text.front() != '-' &&
         text.find_first_not_of(allowed) == std::string::npos;
}

bool isOutputFormat(const std::string& name) {
  const AVOutputFormat* format = av_guess_format(name.c_str(), nullptr, nullptr);
  return format && av_match_name(format->name, kOutputFormats) > 0 && isName(name);
}

// The container that the name's ending asks for; empty when it names none of ours.
std::string formatOfName(const std::string& path) {
  const AVOutputFormat* format = av_guess_format(nullptr, path.c_str(), nullptr);
  return format && av_match_name(format->name, kOutputFormats) > 0 ? format->name : "";
}

bool setText(const std::string& value, bool valid, std::string* field) {
  *field = value;
  return valid;
}

bool setPositive(const std::string& value, int* field) {
  return parseNumber(value, field) && *field > 0;
}

bool setRate(const std::string& value, std::string* field) {
  AVRational rate;
  return setText(value, av_parse_video_rate(&rate, value.c_str()) >= 0 && rate.num > 0, field);
}

bool setSeconds(const std::string& value, std::string* field) {
  double seconds = 0;
  return setText(value, parseSeconds(value, &seconds), field);
}

bool setSize(const std::string& value, PictureSize* size) {
  return value == "auto" || (av_parse_video_size(&size->width, &size->height, value.c_str()) >= 0 &&
                             size->width >= 2 && size->height >= 2);
}

// Stores one option's value; false when the value makes no sense for it.
using Setter = std::function<bool(Options*, const std::string&)>;

const std::map<std::string, Setter>& valueOptions() {
  static const std::map<std::string, Setter> table = {
      {"-i",
       [](Options* o, const std::string& v) {
         return o->input.empty() && setText(v, !v.empty(), &o->input);
       }},
      {"-s", [](Options* o, const std::string& v) { return setSize(v, &o->size); }},
      {"-sws_flags",
       // The fast scalers of old cost sharpness that machines can afford: taken, not kept.
       [](Options*, const std::string& v) { return isName(v); }},
      {"-vcodec",
       [](Options* o, const std::string& v) { return setText(v, isName(v), &o->videoCodec); }},
      {"-b",
       [](Options* o, const std::string& v) {
         return setText(v, bitsPerSecond(v) > 0, &o->videoBitRate);
       }},
      {"-r", [](Options* o, const std::string& v) { return setRate(v, &o->frameRate); }},
      {"-pass",
       [](Options* o, const std::string& v) { return setPositive(v, &o->pass) && o->pass <= 2; }},
      {"-passlogfile",
       [](Options* o, const std::string& v) { return setText(v, !v.empty(), &o->passLogPrefix); }},
      {"-acodec",
       [](Options* o, const std::string& v) { return setText(v, isName(v), &o->audioCodec); }},
      {"-ab",
       [](Options* o, const std::string& v) {
         return setText(v, bitsPerSecond(v) > 0, &o->audioBitRate);
       }},
      {"-ar", [](Options* o, const std::string& v) { return setPositive(v, &o->sampleRateHz); }},
      {"-ac", [](Options* o, const std::string& v) { return setPositive(v, &o->channels); }},
      {"-fs",
       [](Options* o, const std::string& v) {
         return parseNumber(v, &o->maxSizeBytes) && o->maxSizeBytes > 0;
       }},
      {"-ss", [](Options* o, const std::string& v) { return setSeconds(v, &o->startOffset); }},
      {"-t", [](Options* o, const std::string& v) { return setSeconds(v, &o->clipLength); }},
      {"-f",
       [](Options* o, const std::string& v) { return setText(v, isOutputFormat(v), &o->format); }},
  };
  return table;
}

// A name that begins with a dash can still be the output: it stands last and names a container.
bool isOutputName(const std::string& word, bool isLast) {
  return word.empty() || word.front() != '-' || (isLast && !formatOfName(word).empty());
}

bool parseWords(int argc, const char* const* argv, Options* options, std::string* error) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const auto setter = valueOptions().find(word);
    if (word == "-y") {
      options->overwrite = true;
    } else if (word == "-an") {
      options->noAudio = true;
    } else if (setter != valueOptions().end()) {
      if (++i == argc) {
        *error = "option " + word + " lacks its value";
        return false;
      }
      if (!setter->second(options, argv[i])) {
        *error = "option " + word + " cannot take '" + argv[i] + "'";
        return false;
      }
    } else if (!isOutputName(word, i + 1 == argc)) {
      *error = "unknown option '" + word + "'";
      return false;
    } else if (word.empty() || !options->output.empty()) {
      *error = "there must be one output, and '" + word + "' is not it";
      return false;
    } else {
      options->output = word;
    }
  }
  return true;
}

bool completeOutput(Options* options, std::string* error) {
  if (options->format.empty()) options->format = formatOfName(options->output);
  if (options->format.empty()) {
    *error = "'" + options->output + "' names no container that can be written";
    return false;
  }
  if (options->pass != 0 && options->passLogPrefix.empty()) options->passLogPrefix = "ffmpeg2pass";
  return true;
}

}  // namespace

int64_t Options::startOffsetMs() const {
  return milliseconds(startOffset);
}

int64_t Options::clipLengthMs() const {
  return milliseconds(clipLength);
}

int64_t Options::videoBitsPerSecond() const {
  return bitsPerSecond(videoBitRate);
}

int64_t Options::audioBitsPerSecond() const {
  return bitsPerSecond(audioBitRate);
}

bool parseOptions(int argc, const char* const* argv, Options* options, std::string* error) {
  *options = Options();
  if (!parseWords(argc, argv, options, error)) return false;
  if (options->input.empty()) {
    *error = "no input: -i FILE is missing";
    return false;
  }
  return options->isProbe() || completeOutput(options, error);
}
