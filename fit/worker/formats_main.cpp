// The same as fit-worker, for what is or becomes another format than JPEG. Its libraries may start
// threads, and can get no more from the system than fit-worker.
#include <string>

#include "fit/formats/vips_formats.h"
#include "fit/worker/photo_work.h"

int main(int argc, char** argv) {
  WorkerRequest request;
  beginPhotoWork(argc, argv, &request);
  VipsFormats formats;
  std::string error;
  if (!VipsFormats::start(&error)) {
    failPhotoWork({"NotSupported", "Formats beside JPEG cannot be read: " + error, 0});
  }
  endPhotoWork(request, &formats);
}
