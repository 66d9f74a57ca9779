#include "platform/ffmpeg/text/plain_text.h"

std::string printableLine(const std::string& text) {
  std::string line = text;
  for (char& c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) c = ' ';
  }
  const std::string word = "Duration:";
  for (size_t at = line.find(word); at != std::string::npos; at = line.find(word, at)) {
    line[at + word.size() - 1] = ';';
  }
  return line;
}

std::string asciiLine(const std::string& text) {
  std::string line = printableLine(text);
  for (char& c : line) {
    if (static_cast<unsigned char>(c) >= 0x80) c = '?';
  }
  return line;
}
