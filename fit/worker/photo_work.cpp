#include "fit/worker/photo_work.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "fit/photo/fit_photo.h"
#include "fit/photo/photo_view.h"
#include "fit/wire/report_lines.h"
#include "fit/worker/cage.h"
#include "fit/worker/report_channel.h"

namespace {

constexpr int64_t kLargestInput = int64_t{128} << 20;
constexpr CageLimits kLimits = {int64_t{512} << 20, 64 << 10, 60, false};

const ReportChannel kService(STDERR_FILENO);

int fail(const FitFailure& failure) {
  kService.tell(failureLine(failure));
  return 1;
}

bool readInput(int64_t size, std::vector<uint8_t>* file) {
  file->resize(static_cast<size_t>(size));
  size_t done = 0;
  while (done < file->size()) {
    const ssize_t count =
        pread(STDIN_FILENO, file->data() + done, file->size() - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;  // it became shorter
    done += static_cast<size_t>(count);
  }
  file->resize(done);
  return true;
}

bool writeAll(const std::vector<uint8_t>& file) {
  size_t done = 0;
  while (done < file.size()) {
    const ssize_t count =
        pwrite(STDOUT_FILENO, file.data() + done, file.size() - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

bool writeOutput(const std::vector<uint8_t>& file, FitFailure* failure) {
  kService.tellWriting();
  if (ftruncate(STDOUT_FILENO, 0) == 0 && writeAll(file)) return true;
  *failure = {"CannotWrite", std::string("The output cannot be written: ") + strerror(errno), 0};
  [[maybe_unused]] const int ignored = ftruncate(STDOUT_FILENO, 0);
  return false;
}

int fit(const std::vector<uint8_t>& file, const PhotoRequest& request, PhotoFormats* formats) {
  FittedPhoto photo;
  FitFailure failure;
  const auto onProgress = [](double share) { kService.tell(progressLine(share)); };
  if (!fitPhoto(file, request, formats, onProgress, &photo, &failure)) return fail(failure);
  if (!writeOutput(photo.file, &failure)) return fail(failure);
  kService.tell(resultLine({{"bytes", static_cast<int64_t>(photo.file.size())},
                            {"width", photo.size.width},
                            {"height", photo.size.height},
                            {"similarity", std::lround(photo.similarity * kSimilarityUnit)},
                            {"encodes", photo.encodes}}));
  return 0;
}

int inspect(const std::vector<uint8_t>& file, PhotoFormats* formats) {
  PhotoFacts facts;
  FitFailure failure;
  if (!inspectPhoto(file, formats, &facts, &failure)) return fail(failure);
  kService.tell(wordLine("format", nameOf(facts.kind)));
  kService.tell(resultLine({{"bytes", static_cast<int64_t>(file.size())},
                            {"width", facts.size.width},
                            {"height", facts.size.height},
                            {"orientation", facts.orientation},
                            {"metadata", static_cast<int64_t>(facts.metadataBytes)}}));
  return 0;
}

int view(const std::vector<uint8_t>& file, PhotoFormats* formats) {
  PhotoView made;
  FitFailure failure;
  if (!viewPhoto(file, formats, &made, &failure)) return fail(failure);
  if (!writeOutput(made.samples, &failure)) return fail(failure);
  kService.tell(resultLine({{"width", made.whole.width}, {"height", made.whole.height}}));
  return 0;
}

int perform(const WorkerRequest& request, const std::vector<uint8_t>& file, PhotoFormats* formats) {
  switch (request.task) {
    case WorkerTask::Inspect:
      return inspect(file, formats);
    case WorkerTask::View:
      return view(file, formats);
    default:
      return fit(file, request.photo, formats);
  }
}

int work(const WorkerRequest& request, PhotoFormats* formats) {
  struct stat input {};
  if (fstat(STDIN_FILENO, &input) != 0 || !S_ISREG(input.st_mode)) {
    return fail({"CannotRead", "The input is no regular file", 0});
  }
  if (input.st_size > kLargestInput) return fail({"TooLarge", "The input is over 128 MiB", 0});
  CageLimits limits = kLimits;
  if (request.task == WorkerTask::Fit) limits.outputBytes = request.photo.maxBytes;
  if (request.task == WorkerTask::View) limits.outputBytes = kMostViewBytes;
  limits.hasThreads = formats != nullptr;
  if (!enterCage(limits)) return fail({"CannotRead", "The cage cannot be entered", 0});

  std::vector<uint8_t> file;
  if (!readInput(input.st_size, &file)) {
    return fail({"CannotRead", std::string("The input cannot be read: ") + strerror(errno), 0});
  }
  return perform(request, file, formats);
}

}  // namespace

void beginPhotoWork(int argc, char** argv, WorkerRequest* request) {
  closefrom(STDERR_FILENO + 1);
  kService.endWithService();
  signal(SIGXFSZ, SIG_IGN);  // the write fails instead
  std::string error;
  if (parseWords(std::vector<std::string>(argv + 1, argv + argc), request, &error)) return;
  kService.tell("fit-worker: " + error + "\n");
  _exit(2);
}

void endPhotoWork(const WorkerRequest& request, PhotoFormats* formats) {
  int status = 1;
  try {
    strerror(EIO);  // messages are looked up now, while files can be opened
    status = work(request, formats);
  } catch (const std::exception&) {
    status = fail({"TooLarge", "The photo takes too much memory", 0});
  }
  _exit(status);  // nothing is left to do that the cage would allow
}

void failPhotoWork(const FitFailure& failure) {
  _exit(fail(failure));
}
