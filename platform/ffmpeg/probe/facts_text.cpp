#include "platform/ffmpeg/probe/facts_text.h"

#include <charconv>
#include <cstdint>

#include "platform/ffmpeg/probe/media_facts.h"

namespace {

constexpr size_t kMostItems = 4096;

// Every value is "LENGTH:BYTES", one behind the other.
class Writer {
 public:
  bool operator()(std::string& value) {
    text += std::to_string(value.size()) + ":" + value;
    return true;
  }
  template <typename Number>
  bool number(Number value) {
    std::string digits = std::to_string(value);
    return (*this)(digits);
  }
  template <typename Items>
  bool count(Items& items) {
    return number(items.size());
  }
  std::string text;
};

class Reader {
 public:
  explicit Reader(std::string_view whole) : rest(whole) {}

  bool operator()(std::string& value) {
    size_t length = 0;
    const auto [end, failure] = std::from_chars(rest.data(), rest.data() + rest.size(), length);
    const auto digits = static_cast<size_t>(end - rest.data());
    if (failure != std::errc() || digits >= rest.size() || *end != ':') return false;
    rest.remove_prefix(digits + 1);
    if (length > rest.size()) return false;
    value = rest.substr(0, length);
    rest.remove_prefix(length);
    return true;
  }
  template <typename Number>
  bool number(Number& value) {
    std::string digits;
    if (!(*this)(digits)) return false;
    const auto [end, failure] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return failure == std::errc() && end == digits.data() + digits.size();
  }
  template <typename Items>
  bool count(Items& items) {
    size_t size = 0;
    if (!number(size) || size > kMostItems) return false;
    items.resize(size);
    return true;
  }
  bool isAtEnd() const { return rest.empty(); }

 private:
  std::string_view rest;
};

// The order of the values, for both directions.
template <typename Text>
bool flag(Text& text, bool& value) {
  int number = value ? 1 : 0;
  const bool taken = text.number(number);
  value = number != 0;
  return taken;
}

template <typename Text>
bool ratio(Text& text, Ratio& value) {
  return text.number(value.num) && text.number(value.den);
}

template <typename Text>
bool video(Text& text, VideoFacts& v) {
  return text.number(v.index) && text(v.language) && text(v.codec) && text(v.pixelFormat) &&
         text.number(v.width) && text.number(v.height) && ratio(text, v.pixelAspect) &&
         text.number(v.bitsPerSecond) && ratio(text, v.averageRate) && ratio(text, v.nominalRate) &&
         ratio(text, v.timeBase) && flag(text, v.fullRange) && text.number(v.quarterTurns) &&
         text(v.colorMatrix) && text(v.colorTransfer);
}

template <typename Text>
bool audio(Text& text, AudioFacts& a) {
  return text.number(a.index) && text(a.language) && text(a.codec) && text.number(a.sampleRateHz) &&
         text.number(a.channels) && text(a.layout) && text(a.sampleFormat) &&
         text.number(a.bitsPerSecond);
}

template <typename Text>
bool all(Text& text, MediaFacts& facts) {
  bool whole = text(facts.path) && text(facts.format) && text.count(facts.metadata);
  for (auto& [key, value] : facts.metadata) {
    whole = whole && text(key) && text(value);
  }
  whole = whole && text.number(facts.sizeBytes) && text.number(facts.durationUs) &&
          flag(text, facts.durationIsGuess) && text.number(facts.startUs) &&
          text.number(facts.bitsPerSecond);
  bool hasVideo = facts.video.has_value();
  whole = whole && flag(text, hasVideo);
  if (whole && hasVideo) {
    if (!facts.video) facts.video.emplace();
    whole = video(text, *facts.video);
  }
  whole = whole && text.count(facts.audio);
  for (AudioFacts& stream : facts.audio) {
    whole = whole && audio(text, stream);
  }
  return whole;
}

bool keepsPromises(const MediaFacts& facts) {
  if (facts.sizeBytes < 0 || facts.durationUs < 0 || facts.bitsPerSecond < 0) return false;
  if (facts.startUs < -kFarthestUs || facts.startUs > kFarthestUs) return false;
  if (!facts.video) return true;
  const VideoFacts& v = *facts.video;
  return v.width >= 0 && v.height >= 0 && v.bitsPerSecond > 0 && v.averageRate.isKnown() &&
         v.nominalRate.isKnown() && v.timeBase.isKnown() && v.quarterTurns >= 0 &&
         v.quarterTurns <= 3;
}

}  // namespace

std::string packFacts(const MediaFacts& facts) {
  Writer writer;
  MediaFacts copy = facts;
  all(writer, copy);
  return writer.text;
}

bool unpackFacts(std::string_view text, MediaFacts* facts) {
  *facts = MediaFacts();
  Reader reader(text);
  return all(reader, *facts) && reader.isAtEnd() && keepsPromises(*facts);
}
