#include "client/commands/report.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

bool showsColours() {
  static const bool shows = [] {
    const char* refusal = getenv("NO_COLOR");  // no-color.org: an empty one counts for nothing
    const char* terminal = getenv("TERM");
    return isatty(STDERR_FILENO) != 0 && (refusal == nullptr || *refusal == '\0') &&
           terminal != nullptr && strcmp(terminal, "dumb") != 0;
  }();
  return shows;
}

ExitCode sayFailure(const std::string& reason) {
  const char* mark = showsColours() ? "\033[31mtarn-transcode:\033[0m" : "tarn-transcode:";
  fprintf(stderr, "%s %s\n", mark, reason.c_str());
  return ExitFailed;
}
