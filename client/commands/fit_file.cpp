#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/commands/commands.h"
#include "client/commands/run_tasks.h"
#include "client/files/staged_output.h"
#include "client/service/fit_call.h"
#include "client/service/interrupts.h"
#include "client/units/byte_size.h"

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
  outcome->similarity = answer.similarity;
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

bool fitFile(const FileTask& task, const Options& options, const ShowShare& show,
             Outcome* outcome) {
  Interrupts interrupts;
  const OpenFile in(task.in, O_RDONLY);
  if (in.fd < 0) return outcome->fail("cannot read " + task.in + ": " + strerror(errno));
  StagedOutput output(task.out);
  if (output.temporaryPath().empty()) return outcome->fail(output.errorText());
  const OpenFile out(output.temporaryPath(), O_WRONLY);
  if (out.fd < 0) return outcome->fail("cannot write " + task.out + ": " + strerror(errno));
  FitWish wish;
  wish.input = in.fd;
  wish.output = out.fd;
  wish.maxBytes = static_cast<uint64_t>(task.maxBytes);
  wish.maxWidth = options.maxWidth;
  wish.maxHeight = options.maxHeight;
  wish.keepMetadata = options.keepMetadata;
  const FitAnswer answer = fitPhoto(wish, show, &interrupts);
  if (const int number = interrupts.received(); number != 0) return outcome->failBySignal(number);
  return takeAnswer(answer, &output, outcome);
}

}  // namespace

ExitCode runFit(const Options& options) {
  return runTasks(options, fitFile);
}
