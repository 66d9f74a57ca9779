#include "client/commands/run_tasks.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "client/commands/progress_line.h"
#include "client/files/input_file.h"

namespace fs = std::filesystem;
using std::chrono::steady_clock;

namespace {

// Whether IN can be read and is not OUT.
bool isPossible(const FileTask& task, Outcome* outcome) {
  std::string error;
  if (!isUsableInput(task.in, &error)) {
    return outcome->fail("cannot read " + task.in + ": " + error);
  }
  std::error_code ignored;
  return !fs::equivalent(task.in, task.out, ignored) ||
         outcome->fail("input and output are the same file");
}

Outcome makeOne(const FileTask& task, const Options& options, Make make) {
  const auto start = steady_clock::now();
  std::error_code missing;
  const uintmax_t inputBytes = fs::file_size(task.in, missing);
  Outcome outcome;
  outcome.input = task.in;
  outcome.output = task.out;
  if (!missing) outcome.inputBytes = static_cast<int64_t>(inputBytes);
  if (isPossible(task, &outcome)) {
    ProgressLine line(isatty(STDERR_FILENO) != 0);
    const auto show = [&](double share) {
      if (!options.quiet) line.show(share);
    };
    make(task, options, show, &outcome);
  }
  outcome.elapsed = std::chrono::duration<double>(steady_clock::now() - start).count();
  return outcome;
}

}  // namespace

void tell(const Outcome& outcome, const Options& options) {
  if (options.json) {
    printf("%s\n", jsonOf(outcome).c_str());
  } else if (outcome.exitCode == ExitDone && !options.quiet) {
    const std::string& file = outcome.output.empty() ? outcome.input : outcome.output;
    printf("%s: %s\n", file.c_str(), outcome.words.c_str());
  }
  fflush(stdout);
  if (outcome.exitCode == ExitDone) return;
  const char* gap = outcome.errorDetail.empty() ? "" : "\n";
  sayFailure(outcome.errorText + gap + outcome.errorDetail);
}

ExitCode runTasks(const Options& options, Make make) {
  std::vector<FileTask> tasks;
  std::string error;
  if (!takeTasks(options, &tasks, &error)) return sayFailure(error);
  ExitCode worst = ExitDone;
  for (const FileTask& task : tasks) {
    const Outcome outcome = makeOne(task, options, make);
    tell(outcome, options);
    worst = std::max(worst, outcome.exitCode);
    if (outcome.exitCode == ExitNoService || outcome.exitCode > ExitSignal) break;
  }
  return worst;
}
