// Progress and the time left, on stderr: on a terminal one line that is rewritten, otherwise a line
// at each tenth.
#ifndef CLIENT_COMMANDS_PROGRESS_LINE_H
#define CLIENT_COMMANDS_PROGRESS_LINE_H

#include <cstdint>

class ProgressLine {
 public:
  // The time left is reckoned from here on.
  explicit ProgressLine(bool isTerminal);
  // Wipes the line off the terminal.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Wipes it until it is shown again.
  void hide();
  // Takes the share that is done, 0 to 1.
  void show(double doneShare);

 private:
  bool isTerminal;
  int64_t startUs;
  int shownTenth = 0;
  bool isWritten = false;
};

#endif
