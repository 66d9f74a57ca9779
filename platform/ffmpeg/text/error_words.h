// The error lines of the ffmpeg that we run, in a form that a person can be shown.
#ifndef PLATFORM_FFMPEG_TEXT_ERROR_WORDS_H
#define PLATFORM_FFMPEG_TEXT_ERROR_WORDS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Keeps a bounded number of lines: the first ones, which name the cause, and the last ones.
// Addresses ("@ 0x55…") go, repeated lines are kept once, hidden paths become the asked-for ones.
class ErrorWords {
 public:
  // Every `hidden` in a line is shown as `shown`.
  void rename(const std::string& hidden, const std::string& shown);

  // Takes the next piece of the stream, cut anywhere.
  void add(std::string_view piece);
  // The stream has ended: a last line without its end counts too.
  void finish();

  // One line each, with line ends; empty when there was nothing.
  std::string text() const;

 private:
  void takeLine(const std::string& raw);

  std::vector<std::pair<std::string, std::string>> names;
  std::string partial;
  std::vector<std::string> first;
  std::vector<std::string> last;
  size_t dropped = 0;
};

#endif
