#include "client/commands/compare_photos.h"

#include <cstdio>
#include <filesystem>

#include "client/compare/comparison.h"
#include "client/compare/photo_worker.h"
#include "client/files/staged_output.h"

namespace fs = std::filesystem;

bool mayCompare(const FileTask& task, const std::string& picture, Outcome* outcome) {
  if (!isPhoto(task.in)) {
    return outcome->fail("--compare is for photos: " + task.in + " is none");
  }
  std::error_code missing;
  const std::string path = absolutePath(picture);
  const bool isOther = path != task.out && !fs::equivalent(path, task.in, missing) &&
                       !fs::equivalent(path, task.out, missing);
  return isOther || outcome->fail("--compare would replace " + path);
}

bool comparePhotos(const FileTask& task, const Options& options, Outcome* outcome) {
  StagedOutput output(absolutePath(options.compare), options.noClobber);
  std::string error = output.errorText();
  double similarity = 0;
  if (!output.temporaryPath().empty() &&
      writeComparison(task.in, task.out, output.temporaryPath(), &similarity, &error)) {
    if (output.commit()) {
      outcome->similarity = similarity;
      char words[32];
      snprintf(words, sizeof words, ", SSIM %.3f", similarity);
      outcome->words += words;
      return true;
    }
    error = output.errorText();
  }
  return outcome->fail(task.out + " is made, but there is no picture of both: " + error);
}
