#include "client/compare/photo_worker.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "fit/photo/photo_kind.h"

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
bool runWorker(WorkerTask task, int input, int output, std::string* told, std::string* error) {
  g_autoptr(GError) failure = nullptr;
  const std::unique_ptr<GSubprocessLauncher, Unref> launcher(
      g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_PIPE));
  g_subprocess_launcher_take_stdin_fd(launcher.get(), input);
  g_subprocess_launcher_take_stdout_fd(launcher.get(), output);
  const std::string program = workerProgram();
  const std::unique_ptr<GSubprocess, Unref> worker(g_subprocess_launcher_spawn(
      launcher.get(), &failure, program.c_str(), nameOf(task), nullptr));
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

}  // namespace

bool askPhotoWorker(WorkerTask task, const std::string& path, int output, WorkerReport* report,
                    std::string* error) {
  const int input = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int target = fcntl(output, F_DUPFD_CLOEXEC, 0);
  if (input < 0 || target < 0) {
    *error = strerror(errno);
    for (const int descriptor : {input, target}) {
      if (descriptor >= 0) close(descriptor);
    }
    return false;
  }
  std::string told;
  if (!runWorker(task, input, target, &told, error)) return false;
  *report = reportOf(told);
  if (report->result) return true;
  *error = report->failure ? report->failure->message : "the process that decodes it died";
  return false;
}

int sideOf(const WorkerReport& report, const char* name) {
  constexpr int64_t kLongestSide = 65535;
  const auto found = report.result->find(name);
  const int64_t told = found == report.result->end() ? 0 : found->second;
  return static_cast<int>(std::clamp<int64_t>(told, 1, kLongestSide));
}

bool isPhoto(const std::string& path) {
  char start[kKindBytes] = {};
  std::ifstream(path, std::ios::binary).read(start, sizeof start);
  const PhotoKind kind = photoKindOf({reinterpret_cast<const uint8_t*>(start), sizeof start});
  return kind == PhotoKind::Jpeg || isOtherPicture(kind);
}

bool lookAtPhotoFile(const std::string& path, PhotoLook* look, std::string* error) {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  WorkerReport report;
  const bool isRead = askPhotoWorker(WorkerTask::Inspect, path, nowhere, &report, error);
  if (nowhere >= 0) close(nowhere);
  if (!isRead) return false;
  const auto metadata = report.result->find("metadata");
  look->format = report.words["format"];
  look->width = sideOf(report, "width");
  look->height = sideOf(report, "height");
  look->metadataBytes = metadata == report.result->end() ? 0 : metadata->second;
  return true;
}
