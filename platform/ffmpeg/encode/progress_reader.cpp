#include "platform/ffmpeg/encode/progress_reader.h"

#include <charconv>

namespace {

// True when the text is a number above *highest, which then takes it.
bool raise(std::string_view text, int64_t* highest) {
  int64_t value = 0;
  const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure != std::errc() || value <= *highest) return false;
  *highest = value;
  return true;
}

}  // namespace

bool ProgressReader::takeLine(std::string_view line) {
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) return false;
  const std::string_view key = line.substr(0, equals);
  const std::string_view value = line.substr(equals + 1);
  if (key == "out_time_us") return raise(value, &outTimeUs);
  if (key == "frame") return raise(value, &frame);
  if (key == "total_size") return raise(value, &totalBytes);
  return false;
}

bool ProgressReader::add(std::string_view piece) {
  partial += piece;
  bool further = false;
  size_t start = 0;
  for (size_t end = partial.find('\n'); end != std::string::npos; end = partial.find('\n', start)) {
    further |= takeLine(std::string_view(partial).substr(start, end - start));
    start = end + 1;
  }
  partial.erase(0, start);
  return further;
}
