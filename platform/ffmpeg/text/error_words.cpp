#include "platform/ffmpeg/text/error_words.h"

#include <algorithm>
#include <cctype>

#include "platform/ffmpeg/text/plain_text.h"

namespace {

constexpr size_t kFirstLines = 20;
constexpr size_t kLastLines = 20;
constexpr size_t kMaxLineLength = 1000;

void replaceAll(const std::string& from, const std::string& to, std::string* text) {
  for (size_t at = text->find(from); at != std::string::npos; at = text->find(from, at)) {
    text->replace(at, from.size(), to);
    at += to.size();
  }
}

// "[mpeg4 @ 0x55d0c8] bitrate too low" → "[mpeg4] bitrate too low"
void removeAddresses(std::string* line) {
  const std::string mark = " @ 0x";
  for (size_t at = line->find(mark); at != std::string::npos; at = line->find(mark, at)) {
    size_t end = at + mark.size();
    while (end < line->size() && isxdigit(static_cast<unsigned char>((*line)[end]))) {
      ++end;
    }
    line->erase(at, end - at);
  }
}

bool contains(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace

void ErrorWords::rename(const std::string& hidden, const std::string& shown) {
  names.emplace_back(hidden, shown);
}

void ErrorWords::takeLine(const std::string& raw) {
  std::string line = raw;
  for (const auto& [hidden, shown] : names) {
    replaceAll(hidden, shown, &line);
  }
  removeAddresses(&line);
  line = printableLine(line);
  if (line.find_first_not_of(' ') == std::string::npos) return;
  if (contains(first, line) || contains(last, line)) return;
  if (first.size() < kFirstLines) {
    first.push_back(line);
    return;
  }
  if (last.size() == kLastLines) {
    last.erase(last.begin());
    ++dropped;
  }
  last.push_back(line);
}

void ErrorWords::add(std::string_view piece) {
  for (const char c : piece) {
    if (c == '\n' || c == '\r') {
      takeLine(partial);
      partial.clear();
    } else if (partial.size() < kMaxLineLength) {
      partial += c;
    }
  }
}

void ErrorWords::finish() {
  takeLine(partial);
  partial.clear();
}

std::string ErrorWords::text() const {
  std::string all;
  for (const std::string& line : first) {
    all += line + "\n";
  }
  if (dropped > 0) all.append("(").append(std::to_string(dropped)).append(" lines left out)\n");
  for (const std::string& line : last) {
    all += line + "\n";
  }
  return all;
}
