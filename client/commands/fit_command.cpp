#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "client/commands/commands.h"
#include "client/commands/in_out.h"
#include "client/commands/progress_line.h"
#include "client/files/staged_output.h"
#include "client/service/fit_call.h"
#include "client/service/interrupts.h"
#include "client/service/service_reply.h"
#include "client/units/byte_size.h"
#include "client/units/shared_size.h"
#include "dsjson/dsjson.h"

namespace fs = std::filesystem;

namespace {

struct FitTask {
  InOut files;
  int64_t maxBytes = 0;
};

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

int64_t fileBytes(const std::string& path) {
  std::error_code missing;
  const uintmax_t bytes = fs::file_size(path, missing);
  return missing ? 0 : static_cast<int64_t>(std::min<uintmax_t>(bytes, INT64_MAX));
}

// IN and OUT, or each of FILES and a file of its name in DIR.
ExitCode takeFiles(const Options& options, std::vector<FitTask>* tasks) {
  if (options.outDir.empty()) {
    tasks->push_back({inOutOf(options), 0});
    return checkInOut(tasks->back().files);
  }
  std::set<std::string> names;
  for (const std::string& word : options.words) {
    const fs::path in = absolutePath(word);
    if (!names.insert(in.filename()).second) {
      return sayFailure("two files would become " + in.filename().string());
    }
    const std::string out = absolutePath(options.outDir + "/" + in.filename().string());
    tasks->push_back({{in, out}, 0});
    const ExitCode exitCode = checkInOut(tasks->back().files);
    if (exitCode != ExitDone) return exitCode;
  }
  return ExitDone;
}

// The limit of each file: its own, its share of the total, or the smaller where both are told.
void takeLimits(const Options& options, std::vector<FitTask>* tasks) {
  std::vector<int64_t> sizes;
  for (const FitTask& task : *tasks) {
    sizes.push_back(std::min<int64_t>(fileBytes(task.files.in), options.size.value_or(INT32_MAX)));
  }
  if (options.total) sizes = sharesOf(*options.total, sizes);
  for (size_t i = 0; i < tasks->size(); ++i) {
    (*tasks)[i].maxBytes = std::max<int64_t>(1, options.total ? sizes[i] : *options.size);
  }
}

void printResult(const Options& options, const InOut& files, const FitAnswer& answer) {
  if (options.json) {
    dsjson::JValue line = dsjson::Object();
    line.put("in", files.in)
        .put("out", files.out)
        .put("bytes", static_cast<int32_t>(answer.bytes))
        .put("width", static_cast<int32_t>(answer.width))
        .put("height", static_cast<int32_t>(answer.height))
        .put("ssim", answer.similarity);
    printf("%s\n", requestText(line).c_str());
  } else if (!options.quiet) {
    printf("%s: %u x %u, %s%s\n", files.out.c_str(), answer.width, answer.height,
           formatByteSize(static_cast<int64_t>(answer.bytes)).c_str(),
           answer.isUntouched ? ", as it was" : "");
  }
  fflush(stdout);
}

ExitCode fitOne(const Options& options, const FitTask& task, FitWish wish,
                const std::function<void(double)>& onProgress, Interrupts* interrupts,
                bool* isStopped) {
  const OpenFile in(task.files.in, O_RDONLY);
  if (in.fd < 0) return sayFailure("cannot read " + task.files.in + ": " + strerror(errno));
  StagedOutput output(task.files.out);
  if (output.temporaryPath().empty()) return sayFailure(output.errorText());
  const OpenFile out(output.temporaryPath(), O_WRONLY);
  if (out.fd < 0) return sayFailure("cannot write " + task.files.out + ": " + strerror(errno));
  wish.input = in.fd;
  wish.output = out.fd;
  wish.maxBytes = static_cast<uint64_t>(task.maxBytes);
  const FitAnswer answer = fitPhoto(wish, onProgress, interrupts);
  if (const int number = interrupts->received(); number != 0) {
    *isStopped = true;
    return sayInterrupted(number);
  }
  if (answer.kind != FitAnswer::Made) {
    sayFailure(task.files.in + ": " + answer.errorText);
    *isStopped = answer.kind == FitAnswer::NoService;
    if (answer.kind == FitAnswer::TooSmall) return ExitCannotFit;
    return answer.kind == FitAnswer::NoService ? ExitNoService : ExitFailed;
  }
  if (!output.commit()) return sayFailure(output.errorText());
  printResult(options, task.files, answer);
  return ExitDone;
}

}  // namespace

ExitCode runFit(const Options& options) {
  FitWish wish;
  wish.maxWidth = options.maxWidth;
  wish.maxHeight = options.maxHeight;
  wish.keepMetadata = options.keepMetadata;
  std::vector<FitTask> tasks;
  const ExitCode exitCode = takeFiles(options, &tasks);
  if (exitCode != ExitDone) return exitCode;
  takeLimits(options, &tasks);

  ExitCode worst = ExitDone;
  bool isStopped = false;
  Interrupts interrupts;
  const bool showsProgress = !options.quiet && isatty(STDERR_FILENO) != 0;
  for (const FitTask& task : tasks) {
    ProgressLine line(true);
    const auto show = [&](double share) {
      if (showsProgress) line.show(share);
    };
    worst = std::max(worst, fitOne(options, task, wish, show, &interrupts, &isStopped));
    if (isStopped) break;
  }
  return worst;
}
