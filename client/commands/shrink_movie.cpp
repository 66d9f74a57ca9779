#include "client/commands/shrink_movie.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "client/commands/commands.h"
#include "client/commands/movie_request.h"
#include "client/commands/withdrawal.h"
#include "client/files/staged_output.h"
#include "client/service/movie_info.h"
#include "client/service/movie_progress.h"
#include "client/service/service_reply.h"
#include "client/units/byte_size.h"

namespace fs = std::filesystem;

namespace {

bool failWithoutMovie(const Answer& answer, Outcome* outcome) {
  if (answer.kind != Answer::Silent) return outcome->failWithoutReply(answer);
  return outcome->fail("the service could not read " + outcome->input + " as a movie");
}

void replaceAll(std::string* text, const std::string& old, const std::string& fresh) {
  for (size_t at = text->find(old); at != std::string::npos; at = text->find(old, at)) {
    text->replace(at, old.size(), fresh);
    at += fresh.size();
  }
}

Answer ask(const std::string& request, const StagedOutput& output, const Watcher& watcher,
           Withdrawal* withdrawal) {
  const MovieProgress progress(output.temporaryPath());
  return callServiceAgain(
      "resizeMovie", request,
      [&] {
        const auto step = progress.step();
        if (step) watcher.show(*step);
        return withdrawal->goesOn();
      },
      [&] { watcher.note(kAskedAgain); });
}

// The encoder says why it could not write.
bool isFullDisk(const std::string& words) {
  return words.find(strerror(ENOSPC)) != std::string::npos ||
         words.find(strerror(EDQUOT)) != std::string::npos;
}

// What the service says when no plan keeps the limit.
constexpr char kNoPlan[] = "can't reach targetBitrate, maxOutputSize too small?";
// The encoder's own reasons, at the end of the detail.
constexpr char kNoEncodeFits[] = "the whole clip cannot be had ";
constexpr char kIsCut[] = "the input is damaged or cut short";

// The line of the text that has the words in it, without the name of who says it; "" for none.
std::string lineWith(const std::string& text, const char* words) {
  const size_t at = text.find(words);
  if (at == std::string::npos) return "";
  const size_t before = text.rfind('\n', at);
  std::string line = text.substr(before == std::string::npos ? 0 : before + 1);
  line = line.substr(0, line.find('\n'));
  constexpr char kSpeaker[] = "ffmpeg: ";
  return line.rfind(kSpeaker, 0) == 0 ? line.substr(strlen(kSpeaker)) : line;
}

// Then the service asks for no extension that it knows.
bool namesCodecs(const dsjson::JValue& request) {
  std::string name;
  return request["videoCodec"].asString(name) == dsjson::CONV_OK &&
         request["audioCodec"].asString(name) == dsjson::CONV_OK;
}

// The service names its pass logs after the output and removes them, unless it dies.
void removePassLogs(const std::string& output) {
  for (int number = 0; number <= 9; ++number) {
    unlink((output + "-" + std::to_string(number) + ".log").c_str());
  }
}

// The reason, told of the file that the user knows, and plainly where it can be.
bool failAsRefused(const ServiceReply& reply, const StagedOutput& output, int32_t maxBytes,
                   Outcome* outcome) {
  if (isFullDisk(reply.errorDetail)) return outcome->failForSpace();
  outcome->errorDetail = reply.errorDetail;
  replaceAll(&outcome->errorDetail, output.temporaryPath(), output.targetPath());
  if (reply.errorText == kNoPlan) {
    return outcome->fail("the movie cannot be made to fit " + formatByteSize(maxBytes),
                         ExitCannotFit);
  }
  const std::string tooFew = lineWith(outcome->errorDetail, kNoEncodeFits);
  if (!tooFew.empty()) return outcome->fail(tooFew, ExitCannotFit);
  const std::string damage = lineWith(outcome->errorDetail, kIsCut);
  if (!damage.empty()) return outcome->fail(damage);
  return outcome->fail(reply.errorText.empty() ? "the service refused and gave no reason"
                                               : reply.errorText);
}

// Takes a reply for a success only when a movie is there.
bool takeMovie(const ServiceReply& reply, int32_t maxBytes, StagedOutput* output,
               Outcome* outcome) {
  if (!reply.succeeded) return failAsRefused(reply, *output, maxBytes, outcome);
  std::error_code missing;
  const auto bytes = fs::file_size(output->temporaryPath(), missing);
  if (missing || bytes == 0) return outcome->fail("no movie came out");
  outcome->outputBytes = static_cast<int64_t>(bytes);
  return output->commit() || outcome->fail(output->errorText());
}

void describe(const std::string& path, int64_t bytes, Outcome* outcome) {
  const auto info = parseMovieInfo(askMovieInfo(path));
  outcome->words = info ? info->words() : formatByteSize(bytes);
  if (info) outcome->seconds = info->seconds;
}

}  // namespace

bool shrinkMovie(const FileTask& task, const Options& options, const Watcher& watcher,
                 Outcome* outcome) {
  if (!isMovieName(task.out) && !namesCodecs(options.movie)) {
    return outcome->fail(
        "the name of a movie ends in .mp4 or .3gp, in small letters or capitals: " + task.out +
        " does not");
  }
  Interrupts interrupts;
  StagedOutput output(task.out, options.noClobber);
  if (output.temporaryPath().empty()) return outcome->fail(output.errorText());
  dsjson::JValue request = options.movie;
  request.put("inFile", task.in).put("outFile", output.temporaryPath());
  if (task.maxBytes != 0) request.put(kMovieSize, task.maxBytes);
  // The encoder is ended at once, on any machine that is not very busy.
  Withdrawal withdrawal(&interrupts, &output, std::chrono::seconds(10));
  const Answer answer = ask(requestText(request), output, watcher, &withdrawal);
  removePassLogs(output.temporaryPath());
  if (const int number = withdrawal.signalNumber(); number != 0) {
    return outcome->failBySignal(number);
  }
  if (answer.kind != Answer::Replied) return failWithoutMovie(answer, outcome);
  if (!takeMovie(parseServiceReply(answer.payload), task.maxBytes, &output, outcome)) return false;
  if (options.json || !options.quiet) describe(task.out, *outcome->outputBytes, outcome);
  return true;
}

ExitCode runResizeMovie(const Options& options) {
  return runTasks(options, Media::Movies, shrinkMovie);
}
