#include <chrono>

#include "client/commands/commands.h"
#include "client/commands/run_tasks.h"
#include "client/files/input_file.h"
#include "client/service/movie_info.h"

namespace {

bool look(const std::string& path, Outcome* outcome) {
  std::string error;
  if (!isUsableInput(path, &error)) return outcome->fail("cannot read " + path + ": " + error);
  const Answer answer = askMovieInfo(path);
  if (answer.kind == Answer::Silent) {
    return outcome->fail("the service could not read " + path + " as a movie");
  }
  if (answer.kind != Answer::Replied) return outcome->failWithoutReply(answer);
  const auto info = parseMovieInfo(answer);
  if (!info) return outcome->fail("the service replied " + answer.payload);
  outcome->inputBytes = info->sizeBytes;
  outcome->seconds = info->seconds;
  outcome->words = info->words();
  return true;
}

}  // namespace

ExitCode runInfo(const Options& options) {
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  outcome.input = absolutePath(options.words[0]);
  look(outcome.input, &outcome);
  outcome.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  tell(outcome, options);
  return outcome.exitCode;
}
