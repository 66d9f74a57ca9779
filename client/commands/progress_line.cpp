#include "client/commands/progress_line.h"

#include <glib.h>

#include <cstdio>
#include <string>

#include "client/units/time_span.h"

namespace {

// "\033[K" would be shorter; blanks work on every terminal.
constexpr int kLineWidth = 30;

}  // namespace

ProgressLine::ProgressLine(bool terminal) : isTerminal(terminal), startUs(g_get_monotonic_time()) {}

ProgressLine::~ProgressLine() {
  hide();
}

void ProgressLine::hide() {
  if (isTerminal && isWritten) fprintf(stderr, "\r%*s\r", kLineWidth, "");
  isWritten = false;
}

void ProgressLine::show(double doneShare) {
  const int tenth = static_cast<int>(doneShare * 10);
  if (!isTerminal && tenth <= shownTenth) return;
  shownTenth = tenth;
  const int percent = isTerminal ? static_cast<int>(doneShare * 100) : tenth * 10;
  std::string text = std::to_string(percent) + " %";
  if (doneShare > 0) {
    const double elapsed = static_cast<double>(g_get_monotonic_time() - startUs) / 1e6;
    text += ", " + formatTime(elapsed * (1 - doneShare) / doneShare) + " left";
  }
  if (isTerminal) {
    fprintf(stderr, "\r%-*s", kLineWidth, text.c_str());
  } else {
    fprintf(stderr, "%s\n", text.c_str());
  }
  fflush(stderr);
  isWritten = true;
}
