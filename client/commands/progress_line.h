// Progress and the time left, on stderr: on a terminal one line that is rewritten, with a bar as
// wide as there is room; otherwise a line now and then, for those who ask.
#ifndef CLIENT_COMMANDS_PROGRESS_LINE_H
#define CLIENT_COMMANDS_PROGRESS_LINE_H

#include <cstdint>
#include <string>

#include "client/commands/options.h"
#include "client/service/step.h"

class ProgressLine {
 public:
  // The time left is reckoned from here on.
  explicit ProgressLine(const Options& options);
  // Wipes the line off the terminal.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Wipes it until it is shown again.
  void hide();
  void show(const Step& step);

 private:
  const bool isTerminal;
  const bool isWanted;
  const int64_t startUs;
  int64_t shownUs = 0;  // the last line that stays; 0: none
  size_t writtenWidth = 0;
};

// " 43 % [####------] pass 1 of 2, 0:12 left", of at most so many columns: where they are few the
// pass goes first, then the bar. No bar for 0 columns.
std::string progressText(const Step& step, double elapsedSeconds, size_t columns);

#endif
