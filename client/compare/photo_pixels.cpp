#include "client/compare/photo_pixels.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "fit/photo/photo_kind.h"
#include "fit/photo/photo_view.h"
#include "fit/wire/report_lines.h"
#include "fit/wire/request_words.h"

namespace {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};

// Where the installation has it, wherever that was moved.
std::string workerProgram() {
  g_autofree char* self = g_file_read_link("/proc/self/exe", nullptr);
  g_autofree char* folder = g_path_get_dirname(self != nullptr ? self : "");
  return std::string(folder) + "/" + TARN_LIBEXECDIR_FROM_BIN + "/fit-worker";
}

// Runs it on the two descriptors, which it takes.
bool runWorker(int input, int output, std::string* told, std::string* error) {
  g_autoptr(GError) failure = nullptr;
  const std::unique_ptr<GSubprocessLauncher, Unref> launcher(
      g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_PIPE));
  g_subprocess_launcher_take_stdin_fd(launcher.get(), input);
  g_subprocess_launcher_take_stdout_fd(launcher.get(), output);
  const std::string program = workerProgram();
  const std::unique_ptr<GSubprocess, Unref> worker(g_subprocess_launcher_spawn(
      launcher.get(), &failure, program.c_str(), nameOf(WorkerTask::View), nullptr));
  g_autofree char* lines = nullptr;
  if (worker == nullptr || g_subprocess_communicate_utf8(worker.get(), nullptr, nullptr, nullptr,
                                                         &lines, &failure) == FALSE) {
    *error = failure->message;
    return false;
  }
  *told = lines;
  return true;
}

WorkerReport reportOf(const std::string& told) {
  WorkerReport report;
  std::istringstream lines(told);
  for (std::string line; std::getline(lines, line);) {
    takeReportLine(line, &report);
  }
  return report;
}

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

bool takeReport(const WorkerReport& report, int file, PhotoPixels* pixels, std::string* error) {
  constexpr int64_t kLongestSide = 65535;
  if (!report.result) {
    *error = report.failure ? report.failure->message : "the process that decodes it died";
    return false;
  }
  const auto side = [&](const char* name) {
    const auto found = report.result->find(name);
    const int64_t told = found == report.result->end() ? 0 : found->second;
    return static_cast<int>(std::clamp<int64_t>(told, 1, kLongestSide));
  };
  pixels->whole = {side("width"), side("height")};
  if (readPlanes(file, pixels)) return true;
  *error = "the process that decodes it wrote no picture";
  return false;
}

}  // namespace

bool isPhoto(const std::string& path) {
  char start[kKindBytes] = {};
  std::ifstream(path, std::ios::binary).read(start, sizeof start);
  const PhotoKind kind = photoKindOf({reinterpret_cast<const uint8_t*>(start), sizeof start});
  return kind == PhotoKind::Jpeg || isOtherPicture(kind);
}

bool readPhotoPixels(const std::string& path, PhotoPixels* pixels, std::string* error) {
  const int input = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int made = memfd_create("pixels", MFD_CLOEXEC);
  const int output = made >= 0 ? fcntl(made, F_DUPFD_CLOEXEC, 0) : -1;
  bool isRead = false;
  std::string told;
  if (input < 0 || output < 0) {
    *error = strerror(errno);
    for (const int descriptor : {input, output}) {
      if (descriptor >= 0) close(descriptor);
    }
  } else if (runWorker(input, output, &told, error)) {
    isRead = takeReport(reportOf(told), made, pixels, error);
  }
  if (made >= 0) close(made);
  return isRead;
}
