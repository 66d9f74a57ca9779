#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>

#include "client/commands/commands.h"
#include "client/commands/run_tasks.h"
#include "client/files/input_file.h"
#include "client/files/photo_info.h"
#include "client/service/movie_info.h"
#include "client/units/byte_size.h"
#ifdef TARN_FIT
#include "client/compare/photo_worker.h"
#endif

namespace {

bool lookAtPhoto(Outcome* outcome) {
  PhotoInfo info;
  std::string error;
  if (!readPhotoInfo(outcome->input, &info, &error)) {
    return outcome->fail("cannot read " + outcome->input + " as a JPEG: " + error);
  }
  outcome->kind = "photo";
  outcome->width = info.size.width;
  outcome->height = info.size.height;
  outcome->metadataBytes = info.metadataBytes;
  outcome->camera = info.camera;
  outcome->words = "JPEG, " + std::to_string(info.size.width) + " x " +
                   std::to_string(info.size.height) + ", " + formatByteSize(*outcome->inputBytes) +
                   ", " + formatByteSize(info.metadataBytes) + " of it metadata" +
                   (info.camera.empty() ? "" : ", " + info.camera);
  return true;
}

#ifdef TARN_FIT
bool lookAtOtherPhoto(Outcome* outcome) {
  PhotoLook look;
  std::string error;
  if (!lookAtPhotoFile(outcome->input, &look, &error)) {
    return outcome->fail("cannot read " + outcome->input + ": " + error);
  }
  outcome->kind = "photo";
  outcome->width = look.width;
  outcome->height = look.height;
  outcome->metadataBytes = look.metadataBytes;
  std::string name = look.format == "webp" ? "WebP" : look.format;
  if (name == look.format) std::transform(name.begin(), name.end(), name.begin(), ::toupper);
  outcome->words = name + ", " + std::to_string(look.width) + " x " + std::to_string(look.height) +
                   ", " + formatByteSize(*outcome->inputBytes) + ", " +
                   formatByteSize(look.metadataBytes) + " of it metadata";
  return true;
}
#endif

bool lookAtMovie(Outcome* outcome) {
  const Answer answer = askMovieInfo(outcome->input);
  if (answer.kind == Answer::Silent) {
    return outcome->fail(outcome->input +
                         " is no photo, and the service could not read it as a movie");
  }
  if (answer.kind != Answer::Replied) return outcome->failWithoutReply(answer);
  const auto info = parseMovieInfo(answer);
  if (!info) return outcome->fail("the service replied " + answer.payload);
  outcome->kind = "movie";
  outcome->seconds = info->seconds;
  outcome->words = info->words();
  return true;
}

bool look(Outcome* outcome) {
  std::string error;
  if (!isUsableInput(outcome->input, &error)) {
    return outcome->fail("cannot read " + outcome->input + ": " + error);
  }
  std::error_code missing;
  outcome->inputBytes = std::filesystem::file_size(outcome->input, missing);
  if (startsAsJpeg(outcome->input)) return lookAtPhoto(outcome);
#ifdef TARN_FIT
  if (isPhoto(outcome->input)) return lookAtOtherPhoto(outcome);
#endif
  return lookAtMovie(outcome);
}

}  // namespace

ExitCode runInfo(const Options& options) {
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  outcome.input = absolutePath(options.words[0]);
  look(&outcome);
  outcome.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  tell(outcome, options);
  return outcome.exitCode;
}
