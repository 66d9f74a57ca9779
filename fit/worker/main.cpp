// Makes one photo fit, in a process that holds three descriptors and can get no other: the photo is
// its standard input, the file to write its standard output, and what it tells its standard error.
//
//     fit-worker fit max-bytes=300000 <photo.jpg 1<>small.jpg
//     fit-worker inspect <photo.jpg
//     fit-worker view <photo.jpg 1<>pixels
//
// It knows JPEG alone. What takes another format is handed on to fit-formats, whose libraries take
// longer to load than a JPEG takes to be made.
#include <unistd.h>

#include <filesystem>
#include <span>
#include <system_error>

#include "fit/photo/photo_kind.h"
#include "fit/worker/photo_work.h"

namespace {

// The first bytes are compared and nothing else: this process is not caged yet.
bool takesOtherFormats(const WorkerRequest& request) {
  uint8_t start[kKindBytes];
  const ssize_t count = pread(STDIN_FILENO, start, sizeof start, 0);
  const std::span<const uint8_t> bytes(start, count < 0 ? 0 : static_cast<size_t>(count));
  return request.photo.format != PhotoKind::Jpeg || isOtherPicture(photoKindOf(bytes));
}

}  // namespace

int main(int argc, char** argv) {
  WorkerRequest request;
  beginPhotoWork(argc, argv, &request);
  if (takesOtherFormats(request)) {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    execv((self.parent_path() / "fit-formats").c_str(), argv);
    failPhotoWork({"NotSupported", "The program for formats beside JPEG cannot be started", 0});
  }
  endPhotoWork(request, nullptr);
}
