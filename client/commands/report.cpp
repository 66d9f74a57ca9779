#include "client/commands/report.h"

#include <cstdio>

ExitCode sayFailure(const std::string& reason) {
  fprintf(stderr, "tarn-transcode: %s\n", reason.c_str());
  return ExitFailed;
}

ExitCode sayNoSpace(const std::string& out) {
  return sayFailure("there is no space left for " + out +
                    ", which is as it was: free some on its disk, or write to another one");
}

ExitCode sayInterrupted(int number) {
  sayFailure("interrupted, the output is as it was");
  return static_cast<ExitCode>(ExitSignal + number);
}

ExitCode sayNoReply(const Answer& answer) {
  sayFailure(answer.errorText);
  return answer.kind == Answer::NoService ? ExitNoService : ExitFailed;
}
