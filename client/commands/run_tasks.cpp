#include "client/commands/run_tasks.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "client/commands/compare_photos.h"
#include "client/commands/many_files.h"
#include "client/commands/piped_task.h"
#include "client/commands/progress_line.h"
#include "client/files/input_file.h"
#include "client/files/jpeg_file.h"
#include "client/units/byte_size.h"

namespace fs = std::filesystem;
using std::chrono::steady_clock;

namespace {

// Whether IN can be read and is not OUT, and what compares them can be made.
bool isPossible(const FileTask& task, [[maybe_unused]] const Options& options, Outcome* outcome) {
  std::string error;
  if (!isUsableInput(task.in, &error)) {
    return outcome->fail("cannot read " + task.in + ": " + error);
  }
  std::error_code ignored;
  if (fs::equivalent(task.in, task.out, ignored)) {
    return outcome->fail("input and output are the same file");
  }
#ifdef TARN_FIT
  if (!options.compare.empty()) return mayCompare(task, options.compare, outcome);
#endif
  return true;
}

// What would be made, in words.
std::string plan(const FileTask& task, const Options& options, int64_t inputBytes) {
  const std::string now = formatByteSize(inputBytes);
  if (task.maxBytes == 0) return "would be encoded anew, from " + now;
  const bool isCopied = inputBytes <= task.maxBytes && !options.always && startsAsJpeg(task.in);
  if (isCopied) return "would be a copy of " + now;
  return "would have at most " + formatByteSize(task.maxBytes) + " instead of " + now;
}

std::string nameOf(const std::string& path, const char* stream) {
  return path == "-" ? stream : path;
}

// The file that the reason is about, unless it names one or is about none.
std::string subjectOf(const Outcome& outcome) {
  const std::string input = nameOf(outcome.input, "standard input");
  const std::string output = nameOf(outcome.output, "standard output");
  const auto isNamed = [&](const std::string& name) {
    return !name.empty() && outcome.errorText.find(name) != std::string::npos;
  };
  const bool isOfFile = outcome.exitCode == ExitFailed || outcome.exitCode == ExitCannotFit;
  return isOfFile && !isNamed(input) && !isNamed(output) ? input + ": " : "";
}

void makeAndCompare(const FileTask& task, const Options& options, Make make, const Watcher& watcher,
                    Outcome* outcome) {
  if (!make(task, options, watcher, outcome)) return;
#ifdef TARN_FIT
  if (!options.compare.empty()) comparePhotos(task, options, outcome);
#endif
}

}  // namespace

Outcome makeOne(const FileTask& task, const Options& options, Make make, const Watcher& watcher) {
  const auto start = steady_clock::now();
  std::error_code missing;
  const uintmax_t inputBytes = fs::file_size(task.in, missing);
  Outcome outcome;
  outcome.input = task.in;
  outcome.output = task.out;
  if (!missing) outcome.inputBytes = static_cast<int64_t>(inputBytes);
  std::error_code unknown;
  if (!isPossible(task, options, &outcome)) {
    // Told already.
  } else if (options.noClobber && fs::exists(task.out, unknown)) {
    outcome.words = "left alone, it was there";
  } else if (options.dryRun) {
    outcome.words = plan(task, options, outcome.inputBytes.value_or(0));
  } else {
    makeAndCompare(task, options, make, watcher, &outcome);
  }
  outcome.elapsed = std::chrono::duration<double>(steady_clock::now() - start).count();
  return outcome;
}

void tell(const Outcome& outcome, const Options& options) {
  if (options.json) {
    printf("%s\n", jsonOf(outcome).c_str());
  } else if (outcome.exitCode == ExitDone && !options.quiet) {
    const std::string& file = outcome.output.empty() ? outcome.input : outcome.output;
    printf("%s: %s\n", file.c_str(), outcome.words.c_str());
  }
  fflush(stdout);
  if (outcome.exitCode == ExitDone) return;
  // A detail that says the reason anew is for programs.
  const bool isPlain = outcome.errorDetail.find(outcome.errorText) != std::string::npos;
  const std::string detail =
      outcome.errorDetail.empty() || isPlain ? "" : "\n" + outcome.errorDetail;
  sayFailure(subjectOf(outcome) + outcome.errorText + detail);
}

Outcome makeOneShown(const FileTask& task, const Options& options, Make make) {
  ProgressLine line(options);
  return makeOne(task, options, make,
                 {[&](const Step& step) { line.show(step); },
                  [&](const std::string& words) {
                    line.hide();
                    if (!options.quiet) sayFailure(words);
                  }});
}

ExitCode runTasks(const Options& options, Media media, Make make) {
  if (isPiped(options)) return runPiped(options, media, make);
  std::vector<FileTask> tasks;
  std::string error;
  if (!takeTasks(options, media, &tasks, &error)) return sayFailure(error);
  if (tasks.size() > 1) return runMany(tasks, options, make);
  const Outcome outcome = makeOneShown(tasks[0], options, make);
  tell(outcome, options);
  return outcome.exitCode;
}
