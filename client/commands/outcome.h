// What became of one file.
#ifndef CLIENT_COMMANDS_OUTCOME_H
#define CLIENT_COMMANDS_OUTCOME_H

#include <cstdint>
#include <optional>
#include <string>

#include "client/commands/report.h"
#include "client/service/service_call.h"

struct Outcome {
  ExitCode exitCode = ExitDone;
  std::string input;  // both absolute; empty: there is none
  std::string output;
  std::optional<int64_t> inputBytes;
  std::optional<int64_t> outputBytes;
  std::optional<int32_t> width;  // of what came out, or of what was looked at
  std::optional<int32_t> height;
  std::string kind;  // "photo" or "movie", of what was looked at
  std::string camera;
  std::optional<int64_t> metadataBytes;  // of a photo
  std::optional<double> seconds;         // a movie's length
  std::optional<double> similarity;      // SSIM, where it was measured
  double elapsed = 0;                    // seconds that it took
  std::string words;                     // what came out, for people: "1296 x 976, 193 kB"
  std::string errorText;
  std::string errorDetail;

  // Each makes it a failure and returns false.

  bool fail(const std::string& reason, ExitCode code = ExitFailed);
  // There is no reply, and why.
  bool failWithoutReply(const Answer& answer);
  // The disk has no room for the output.
  bool failForSpace();
  // The signal of that number ended the command.
  bool failBySignal(int number);
};

// One line for programs: {"input":...,"output":...,"returnValue":true,...}, without what is
// unknown.
std::string jsonOf(const Outcome& outcome);

#endif
