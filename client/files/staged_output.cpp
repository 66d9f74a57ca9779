#include "client/files/staged_output.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// What open() would have given a new file, or what the file has that it replaces.
mode_t outputMode(const fs::path& target) {
  struct stat old;
  if (stat(target.c_str(), &old) == 0) return old.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

StagedOutput::StagedOutput(const std::string& path) {
  if (g_utf8_validate(path.c_str(), -1, nullptr) == FALSE) {
    error = "cannot write " + path + ": its name is not UTF-8";
    return;
  }
  std::error_code code;
  const fs::path real = fs::weakly_canonical(path, code);
  if (code || !real.has_filename()) {
    error = "cannot write " + path + (code ? ": " + code.message() : "");
    return;
  }
  target = real;
  if (fs::is_directory(real, code)) {
    error = "cannot write " + target + ": it is a directory";
    return;
  }
  fs::create_directories(real.parent_path(), code);

  const std::string extension = real.extension();
  std::string name = (real.parent_path() / ("." + real.stem().string() + ".XXXXXX")).string();
  name += extension;
  const int descriptor = mkstemps(name.data(), static_cast<int>(extension.size()));
  if (descriptor < 0) {
    error = "cannot write " + target + ": " + strerror(errno);
    return;
  }
  temporary = name;
  mode = outputMode(real);
  fchmod(descriptor, mode);
  close(descriptor);
}

StagedOutput::~StagedOutput() {
  if (!temporary.empty()) unlink(temporary.c_str());
}

bool StagedOutput::commit() {
  chmod(temporary.c_str(), mode);  // what wrote it may have put a file of its own in place
  if (rename(temporary.c_str(), target.c_str()) != 0) {
    error = "cannot write " + target + ": " + strerror(errno);
    return false;
  }
  temporary.clear();
  return true;
}
