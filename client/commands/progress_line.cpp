#include "client/commands/progress_line.h"

#include <glib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "client/units/time_span.h"

namespace {

constexpr size_t kWidestBar = 40;
constexpr size_t kNarrowestBar = 6;
constexpr int64_t kBetweenLinesUs = 10 * G_USEC_PER_SEC;

// What a terminal shows for the key that ends or stops a command.
constexpr size_t kEcho = sizeof "^C" - 1;

// The last column stays free, some terminals would begin the next line, and so does what a key
// shows.
size_t terminalColumns() {
  constexpr size_t kFree = kEcho + 1;
  winsize size = {};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > kFree;
  return (isKnown ? size.ws_col : 80) - kFree;
}

std::string bar(double share, size_t width) {
  const size_t full = static_cast<size_t>(share * static_cast<double>(width - 2));
  return "[" + std::string(full, '#') + std::string(width - 2 - full, '-') + "]";
}

}  // namespace

std::string progressText(const Step& step, double elapsedSeconds, size_t columns) {
  const double share = std::clamp(step.share, 0.0, 1.0);
  char percent[16];
  snprintf(percent, sizeof percent, "%3d %%", static_cast<int>(share * 100));
  std::string left;
  if (share > 0) left = formatTime(elapsedSeconds * (1 - share) / share) + " left";
  std::string pass;
  if (step.passes > 1) {
    pass = "pass " + std::to_string(step.pass) + " of " + std::to_string(step.passes);
  }
  std::string words = pass + (pass.empty() || left.empty() ? "" : ", ") + left;
  const std::string begin = std::string(percent) + " ";
  if (columns == 0) return begin + words;
  if (begin.size() + kNarrowestBar + 1 + words.size() > columns) words = left;
  const size_t taken = begin.size() + 1 + words.size();
  if (taken + kNarrowestBar > columns) return (begin + words).substr(0, columns);
  return begin + bar(share, std::min(kWidestBar, columns - taken)) + " " + words;
}

ProgressLine::ProgressLine(const Options& options)
    : isTerminal(isatty(STDERR_FILENO) != 0),
      isWanted(!options.quiet && (isTerminal || options.progress)),
      startUs(g_get_monotonic_time()) {}

ProgressLine::~ProgressLine() {
  hide();
}

void ProgressLine::hide() {
  if (writtenWidth == 0) return;
  // "\033[K" would be shorter; blanks work on every terminal.
  const size_t blanks = std::min(writtenWidth, terminalColumns()) + kEcho;
  fprintf(stderr, "\r%*s\r", static_cast<int>(blanks), "");
  fflush(stderr);
  writtenWidth = 0;
}

void ProgressLine::show(const Step& step) {
  if (!isWanted) return;
  const int64_t nowUs = g_get_monotonic_time();
  const double elapsed = static_cast<double>(nowUs - startUs) / G_USEC_PER_SEC;
  if (isTerminal) {
    const size_t columns = terminalColumns();
    const std::string text = progressText(step, elapsed, columns);
    // The terminal may have become narrower: blanks beyond its end would begin another line.
    const size_t width = std::min(writtenWidth, columns);
    fprintf(stderr, "\r%-*s", static_cast<int>(width), text.c_str());
    writtenWidth = text.size();
  } else if (shownUs == 0 || nowUs - shownUs >= kBetweenLinesUs) {
    fprintf(stderr, "%s\n", progressText(step, elapsed, 0).c_str());
    shownUs = nowUs;
  }
  fflush(stderr);
}
