#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "client/commands/commands.h"
#include "client/commands/in_out.h"
#include "client/commands/progress_line.h"
#include "client/commands/withdrawal.h"
#include "client/files/input_file.h"
#include "client/files/staged_output.h"
#include "client/service/movie_info.h"
#include "client/service/movie_progress.h"
#include "client/service/service_reply.h"

namespace fs = std::filesystem;

namespace {

ExitCode sayNoMovie(const Answer& answer, const std::string& in) {
  if (answer.kind != Answer::Silent) return sayNoReply(answer);
  return sayFailure("the service could not read " + in + " as a movie");
}

void replaceAll(std::string* text, const std::string& old, const std::string& fresh) {
  for (size_t at = text->find(old); at != std::string::npos; at = text->find(old, at)) {
    text->replace(at, old.size(), fresh);
    at += fresh.size();
  }
}

// The reason of a refusal, told of the file that the user knows.
std::string refusal(const ServiceReply& reply, const StagedOutput& output) {
  std::string reason = reply.errorText;
  if (!reply.errorDetail.empty()) reason += "\n" + reply.errorDetail;
  if (reason.empty()) return "the service refused and gave no reason";
  replaceAll(&reason, output.temporaryPath(), output.targetPath());
  return reason;
}

Answer callShowingProgress(const std::string& request, const std::string& output, bool isQuiet,
                           Withdrawal* withdrawal) {
  const MovieProgress progress(output);
  ProgressLine line(!isQuiet && isatty(STDERR_FILENO) != 0);
  return callServiceAgain("resizeMovie", request, [&] {
    const auto share = progress.doneShare();
    if (share && !isQuiet) line.show(*share);
    return withdrawal->goesOn();
  });
}

// The encoder says why it could not write.
bool isFullDisk(const std::string& words) {
  return words.find(strerror(ENOSPC)) != std::string::npos ||
         words.find(strerror(EDQUOT)) != std::string::npos;
}

// What the service says when no plan keeps the limit, and what the encoder when no encode did.
bool cannotFit(const ServiceReply& reply) {
  return reply.errorText == "can't reach targetBitrate, maxOutputSize too small?" ||
         reply.errorDetail.find("the whole clip cannot be had ") != std::string::npos;
}

// The service names its pass logs after the output and removes them, unless it dies.
void removePassLogs(const std::string& output) {
  for (int number = 0; number <= 9; ++number) {
    unlink((output + "-" + std::to_string(number) + ".log").c_str());
  }
}

ExitCode resizeMovie(const Options& options, const std::string& in, dsjson::JValue request,
                     StagedOutput* output, Withdrawal* withdrawal) {
  const std::string temporary = output->temporaryPath();
  request.put("inFile", in).put("outFile", temporary);
  const bool isQuiet = options.quiet;
  const Answer answer = callShowingProgress(requestText(request), temporary, isQuiet, withdrawal);
  removePassLogs(temporary);
  ExitCode exitCode;
  if (withdrawal->isWanted(&exitCode)) return exitCode;
  if (answer.kind != Answer::Replied) return sayNoMovie(answer, in);

  const ServiceReply reply = parseServiceReply(answer.payload);
  if (!reply.succeeded) {
    if (options.json) printf("%s\n", answer.payload.c_str());
    sayFailure(refusal(reply, *output));
    if (isFullDisk(reply.errorDetail)) return sayNoSpace(output->targetPath());
    return cannotFit(reply) ? ExitCannotFit : ExitFailed;
  }
  std::error_code missing;
  const auto bytes = fs::file_size(temporary, missing);
  if (missing || bytes == 0) return sayFailure("no movie came out");
  MovieInfo made;
  made.sizeBytes = static_cast<int32_t>(std::min<uintmax_t>(bytes, INT32_MAX));
  if (!output->commit()) return sayFailure(output->errorText());
  if (!isQuiet && !options.json) {
    made = parseMovieInfo(askMovieInfo(output->targetPath())).value_or(made);
  }
  if (options.json) {
    printf("%s\n", answer.payload.c_str());
  } else if (!isQuiet) {
    printf("%s: %s\n", output->targetPath().c_str(), made.words().c_str());
  }
  return ExitDone;
}

}  // namespace

ExitCode runInfo(const Options& options) {
  const std::string in = absolutePath(options.words[0]);
  std::string error;
  if (!isUsableInput(in, &error)) return sayFailure("cannot read " + in + ": " + error);
  const Answer answer = askMovieInfo(in);
  if (answer.kind != Answer::Replied) return sayNoMovie(answer, in);
  const auto info = parseMovieInfo(answer);
  if (!info || options.json) {
    printf("%s\n", answer.payload.c_str());
  } else {
    printf("%s: %s\n", in.c_str(), info->words().c_str());
  }
  return info ? ExitDone : ExitFailed;
}

ExitCode runResizeMovie(const Options& options) {
  const InOut files = inOutOf(options);
  const ExitCode exitCode = checkInOut(files);
  if (exitCode != ExitDone) return exitCode;

  Interrupts interrupts;
  StagedOutput output(files.out);
  if (output.temporaryPath().empty()) return sayFailure(output.errorText());
  // The encoder is ended at once, on any machine that is not very busy.
  Withdrawal withdrawal(&interrupts, &output, std::chrono::seconds(10));
  return resizeMovie(options, files.in, options.movie, &output, &withdrawal);
}
