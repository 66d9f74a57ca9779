#include <filesystem>

#include "client/commands/commands.h"
#include "client/commands/copy_file.h"
#include "client/commands/run_tasks.h"
#include "client/commands/withdrawal.h"
#include "client/files/jpeg_file.h"
#include "client/files/staged_output.h"
#include "client/service/service_reply.h"
#include "client/units/byte_size.h"

namespace fs = std::filesystem;

namespace {

// Where the picture would be less than a pixel wide or high.
constexpr char kScaleTooSmall[] = "Scale factor is too small";

uintmax_t bytesOf(const std::string& path) {
  std::error_code unknown;
  return fs::file_size(path, unknown);
}

Answer ask(const FileTask& task, const Watcher& watcher, StagedOutput* output,
           Withdrawal* withdrawal) {
  dsjson::JValue request = dsjson::Object();
  request.put("inFile", task.in).put("outFile", output->temporaryPath()).put("size", task.maxBytes);
  return callServiceAgain(
      "resizeImage", requestText(request), [&] { return withdrawal->goesOn(); },
      [&] { watcher.note(kAskedAgain); });
}

// Takes a reply for a success only when a whole picture is there.
bool takePicture(const FileTask& task, const ServiceReply& reply, StagedOutput* output,
                 Outcome* outcome) {
  if (!reply.succeeded) {
    // The service gives no reason when no size was small enough.
    const bool isTooSmall = reply.errorText.empty() || reply.errorText == kScaleTooSmall;
    if (!isTooSmall) return outcome->fail(reply.errorText);
    return outcome->fail("the picture cannot be made to fit " + formatByteSize(task.maxBytes),
                         ExitCannotFit);
  }
  if (!isWholeJpeg(output->temporaryPath())) {
    // As much as the service may have wanted: its first attempt is of the source's kind.
    const auto most = std::max(bytesOf(task.in), static_cast<uintmax_t>(task.maxBytes));
    if (!output->hasRoomFor(most)) return outcome->failForSpace();
    return outcome->fail("the picture is damaged: no whole picture came out");
  }
  return output->commit() || outcome->fail(output->errorText());
}

// "1296 x 976, 193 kB"
bool describe(const FileTask& task, const char* remark, Outcome* outcome) {
  JpegSize size;
  std::string error;
  if (!readJpegSize(task.out, &size, &error)) return outcome->fail(error);
  outcome->width = size.width;
  outcome->height = size.height;
  outcome->outputBytes = bytesOf(task.out);
  outcome->words = std::to_string(size.width) + " x " + std::to_string(size.height) + ", " +
                   formatByteSize(*outcome->outputBytes) + remark;
  return true;
}

bool shrinkPhoto(const FileTask& task, const Options& options, const Watcher& watcher,
                 Outcome* outcome) {
  JpegSize size;
  std::string error;
  if (!readJpegSize(task.in, &size, &error)) {
    return outcome->fail("cannot read " + task.in + " as a JPEG: " + error);
  }
  Interrupts interrupts;
  StagedOutput output(task.out, options.noClobber);
  if (output.temporaryPath().empty()) return outcome->fail(output.errorText());
  // A picture that fits would only lose by another encoding, and often grow. What does not end as a
  // picture does is left to the service, which looks at all of it.
  const bool fits = bytesOf(task.in) <= static_cast<uintmax_t>(task.maxBytes);
  if (fits && !options.always && isWholeJpeg(task.in)) {
    return copyAsItIs(task, &output, outcome) && describe(task, ", as it was", outcome);
  }
  // Other pictures may be in front of it.
  Withdrawal withdrawal(&interrupts, &output, std::chrono::seconds(1));
  const Answer answer = ask(task, watcher, &output, &withdrawal);
  if (const int number = withdrawal.signalNumber(); number != 0) {
    return outcome->failBySignal(number);
  }
  if (answer.kind != Answer::Replied) return outcome->failWithoutReply(answer);
  return takePicture(task, parseServiceReply(answer.payload), &output, outcome) &&
         describe(task, "", outcome);
}

}  // namespace

ExitCode runResizeImage(const Options& options) {
  return runTasks(options, Media::Photos, shrinkPhoto);
}
