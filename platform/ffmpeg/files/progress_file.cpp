#include "platform/ffmpeg/files/progress_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "platform/ffmpeg/files/sha256.h"

namespace {

// Plain concatenation: whoever looks for the file has the path as text, not as a place on a disk.
std::string absolute(const std::string& path) {
  if (path.starts_with('/')) return path;
  std::error_code failure;
  return std::filesystem::current_path(failure).string() + "/" + path;
}

bool writeText(const std::string& path, const std::string& text) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "we"), fclose);
  return file && fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
         fflush(file.get()) == 0;
}

}  // namespace

std::string ProgressFile::folder() {
  const char* runtime = getenv("XDG_RUNTIME_DIR");
  if (!runtime || runtime[0] != '/') return "";
  const std::string path = std::string(runtime) + "/tarn-transcode";
  mkdir(path.c_str(), 0700);
  return access(path.c_str(), W_OK | X_OK) == 0 ? path : "";
}

std::vector<std::string> ProgressFile::pathsFor(const std::string& outputPath) {
  const std::string place = folder();
  if (place.empty()) return {};
  const std::string path = place + "/" + sha256Hex(absolute(outputPath)) + ".progress";
  return {path, path + "." + std::to_string(getpid())};
}

ProgressFile::ProgressFile(const std::string& outputPath) {
  const std::vector<std::string> paths = pathsFor(outputPath);
  if (paths.empty()) return;
  filePath = paths[0];
  freshPath = paths[1];
}

ProgressFile::~ProgressFile() {
  if (!filePath.empty()) unlink(filePath.c_str());
}

void ProgressFile::write(const Progress& progress) {
  if (filePath.empty()) return;
  char text[160];
  snprintf(text, sizeof(text), "{\"pass\":%d,\"passes\":%d,\"position\":%lld,\"duration\":%lld}\n",
           progress.pass, progress.passes, static_cast<long long>(progress.positionMs),
           static_cast<long long>(progress.durationMs));
  if (!writeText(freshPath, text) || rename(freshPath.c_str(), filePath.c_str()) != 0) {
    unlink(freshPath.c_str());
  }
}
