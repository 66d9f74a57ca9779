#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "client/commands/commands.h"
#include "client/commands/copy_file.h"
#include "client/commands/run_tasks.h"
#include "client/compare/photo_worker.h"
#include "client/files/staged_output.h"
#include "client/service/fit_call.h"
#include "client/service/interrupts.h"
#include "client/service/movie_info.h"
#include "client/units/byte_size.h"

namespace fs = std::filesystem;

namespace {

class OpenFile {
 public:
  OpenFile(const std::string& path, int mode) : fd(open(path.c_str(), mode | O_CLOEXEC)) {}
  ~OpenFile() {
    if (fd >= 0) close(fd);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  const int fd;
};

void describe(const FitAnswer& answer, Outcome* outcome) {
  outcome->outputBytes = static_cast<int64_t>(answer.bytes);
  outcome->width = static_cast<int32_t>(answer.width);
  outcome->height = static_cast<int32_t>(answer.height);
  if (answer.similarity > 0) outcome->similarity = answer.similarity;
  if (answer.seconds > 0) outcome->seconds = answer.seconds;
  outcome->words = std::to_string(answer.width) + " x " + std::to_string(answer.height) + ", " +
                   formatByteSize(*outcome->outputBytes) +
                   (answer.isUntouched ? ", as it was" : "");
}

bool takeAnswer(const FitAnswer& answer, StagedOutput* output, Outcome* outcome) {
  switch (answer.kind) {
    case FitAnswer::Made:
      describe(answer, outcome);
      return output->commit() || outcome->fail(output->errorText());
    case FitAnswer::TooSmall:
      return outcome->fail(answer.errorText, ExitCannotFit);
    case FitAnswer::NoService:
      return outcome->fail(answer.errorText, ExitNoService);
    default:
      return outcome->fail(answer.errorText);
  }
}

bool fitByService(const FileTask& task, const Options& options, const Watcher& watcher,
                  Outcome* outcome) {
  if (isPhoto(task.in) && !isMadePictureName(task.out)) {
    return outcome->fail("cannot make " + task.out +
                         ": write a name that ends in .jpg, .webp or .avif");
  }
  Interrupts interrupts;
  const OpenFile in(task.in, O_RDONLY);
  if (in.fd < 0) return outcome->fail("cannot read " + task.in + ": " + strerror(errno));
  StagedOutput output(task.out, options.noClobber);
  if (output.temporaryPath().empty()) return outcome->fail(output.errorText());
  const OpenFile out(output.temporaryPath(), O_WRONLY);
  if (out.fd < 0) return outcome->fail("cannot write " + task.out + ": " + strerror(errno));
  FitWish wish;
  wish.input = in.fd;
  wish.output = out.fd;
  wish.isPhoto = isPhoto(task.in);
  wish.maxBytes = static_cast<uint64_t>(task.maxBytes);
  wish.maxWidth = options.maxWidth;
  wish.maxHeight = options.maxHeight;
  wish.keepMetadata = options.keepMetadata;
  if (hasExtension(task.out, ".3gp")) wish.movieFormat = "3gp";
  if (hasExtension(task.out, ".webp")) wish.photoFormat = "webp";
  if (hasExtension(task.out, ".avif")) wish.photoFormat = "avif";
  const FitAnswer answer = fitFile(
      wish, watcher.show, [&] { watcher.note(kAskedAgain); }, &interrupts);
  if (const int number = interrupts.received(); number != 0) return outcome->failBySignal(number);
  return takeAnswer(answer, &output, outcome);
}

// A movie that fits, unless its container changes or something in it is not to go along.
bool mayBeCopied(const FileTask& task, const Options& options, const Outcome& outcome) {
  const bool keepsAll = options.keepMetadata.empty() || options.keepMetadata == "all";
  return keepsAll && outcome.inputBytes.value_or(INT64_MAX) <= task.maxBytes &&
         hasExtension(task.in, fs::path(task.out).extension());
}

bool copyMovie(const FileTask& task, const Options& options, const MovieInfo& info,
               Outcome* outcome) {
  StagedOutput output(task.out, options.noClobber);
  if (output.temporaryPath().empty()) return outcome->fail(output.errorText());
  if (!copyAsItIs(task, &output, outcome)) return false;
  outcome->outputBytes = outcome->inputBytes;
  outcome->seconds = info.seconds;
  outcome->words = info.words() + ", as it was";
  return true;
}

bool fitOne(const FileTask& task, const Options& options, const Watcher& watcher,
            Outcome* outcome) {
  if (!isPhoto(task.in) && mayBeCopied(task, options, *outcome)) {
    if (const auto info = parseMovieInfo(askMovieInfo(task.in))) {
      return copyMovie(task, options, *info, outcome);
    }
  }
  return fitByService(task, options, watcher, outcome);
}

}  // namespace

ExitCode runFit(const Options& options) {
  return runTasks(options, Media::Both, fitOne);
}
