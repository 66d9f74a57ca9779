#include "client/compare/photo_pixels.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/compare/photo_worker.h"
#include "fit/photo/photo_view.h"

namespace {

// A worker's word is not believed further than the bytes that it wrote go.
bool readPlanes(int file, PhotoPixels* pixels) {
  const PictureSize size = viewSize(pixels->whole);
  pixels->picture.size = size;
  off_t at = 0;
  for (int i = 0; i < 3; ++i) {
    Plane& plane = pixels->picture.planes.emplace_back(size.width, size.height);
    for (int y = 0; y < size.height; ++y, at += size.width) {
      if (pread(file, plane.row(y), static_cast<size_t>(size.width), at) != size.width) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

bool readPhotoPixels(const std::string& path, PhotoPixels* pixels, std::string* error) {
  const int made = memfd_create("pixels", MFD_CLOEXEC);
  if (made < 0) {
    *error = strerror(errno);
    return false;
  }
  WorkerReport report;
  bool isRead = askPhotoWorker(WorkerTask::View, path, made, &report, error);
  if (isRead) {
    pixels->whole = {sideOf(report, "width"), sideOf(report, "height")};
    isRead = readPlanes(made, pixels);
    if (!isRead) *error = "the process that decodes it wrote no picture";
  }
  close(made);
  return isRead;
}
