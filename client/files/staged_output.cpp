#include "client/files/staged_output.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/held/held_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40;
constexpr auto kAbandoned = std::chrono::hours(1);

// What open() would have given a new file, or what the file has that it replaces.
mode_t outputMode(const fs::path& target) {
  struct stat old;
  if (stat(target.c_str(), &old) == 0) return old.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Where the path leads in the end, also when nothing is there yet.
fs::path resolved(const std::string& path, std::error_code* code) {
  fs::path real = fs::weakly_canonical(path, *code);
  for (int links = 0; !*code && fs::is_symlink(fs::symlink_status(real)); ++links) {
    const fs::path next = real.parent_path() / fs::read_symlink(real, *code);
    if (!*code) real = fs::weakly_canonical(next, *code);
    if (links == kMostLinks) *code = std::make_error_code(std::errc::too_many_symbolic_link_levels);
  }
  return real;
}

// What a command left that was killed, or a power cut.
void removeAbandoned(const fs::path& folder) {
  std::error_code failure;
  fs::directory_iterator entry(folder, failure);
  for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) {
    std::error_code unknown;
    const std::string path = entry->path();
    if (!hasHeldName(path) || !isWithdrawn(path)) continue;
    const auto age = fs::file_time_type::clock::now() - entry->last_write_time(unknown);
    if (!unknown && age > kAbandoned) fs::remove(path, unknown);
  }
}

}  // namespace

StagedOutput::StagedOutput(const std::string& path, bool keepsOld) : isNew(keepsOld) {
  if (!takeTarget(path)) return;
  const fs::path real = target;
  if (folders.make(real.parent_path()) && makeTemporary(real)) return;
  error = "cannot write " + target + ": " + strerror(errno);
}

StagedOutput::~StagedOutput() {
  letGo();
  if (!temporary.empty()) unlink(temporary.c_str());
}

bool StagedOutput::takeTarget(const std::string& path) {
  if (g_utf8_validate(path.c_str(), -1, nullptr) == FALSE) {
    error = "cannot write " + path + ": its name is not UTF-8";
    return false;
  }
  std::error_code code;
  const fs::path real = resolved(path, &code);
  if (code || !real.has_filename()) {
    error = "cannot write " + path + (code ? ": " + code.message() : "");
    return false;
  }
  const fs::file_status status = fs::status(real, code);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    error = "cannot write " + path + ": it is " +
            (fs::is_directory(status) ? "a directory" : "not a regular file");
    return false;
  }
  target = real;
  return true;
}

bool StagedOutput::makeTemporary(const fs::path& real) {
  removeAbandoned(real.parent_path());
  // The service knows the extensions of movies in small letters.
  std::string extension = real.extension();
  std::transform(extension.begin(), extension.end(), extension.begin(), g_ascii_tolower);
  std::string name = real.parent_path() / (std::string(kHeldPrefix) + "XXXXXX" + extension);
  heldFd = mkostemps(name.data(), static_cast<int>(extension.size()), O_CLOEXEC);
  if (heldFd < 0) return false;
  if (!holdFile(heldFd)) {
    // Where there are no locks the name must not promise one.
    std::string plain = name;
    plain.replace(plain.rfind(kHeldPrefix), std::string_view(kHeldPrefix).size(), ".tarn-");
    if (rename(name.c_str(), plain.c_str()) == 0) name = plain;
  }
  temporary = name;
  mode = outputMode(real);
  fchmod(heldFd, mode);
  return true;
}

bool StagedOutput::hasRoomFor(uintmax_t bytes) const {
  rlimit limit = {};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && bytes > limit.rlim_cur) return false;
  if (fallocate(heldFd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)) == 0) return true;
  if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) return false;
  std::error_code code;
  const fs::space_info space = fs::space(temporary, code);
  return code || space.available >= bytes;
}

void StagedOutput::letGo() {
  if (heldFd >= 0) close(heldFd);
  heldFd = -1;
}

bool StagedOutput::commit() {
  chmod(temporary.c_str(), mode);  // what wrote it may have put a file of its own in place
  int result = renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str(),
                         isNew ? RENAME_NOREPLACE : 0);
  // Not every file system knows how not to replace.
  if (result != 0 && errno == EINVAL) result = rename(temporary.c_str(), target.c_str());
  if (result != 0) {
    error = "cannot write " + target + ": " + strerror(errno);
    return false;
  }
  temporary.clear();
  return true;
}
