#include "platform/ffmpeg/process/sandbox.h"

#include <elf.h>
#include <fcntl.h>
#include <limits.h>
#include <link.h>
#include <linux/landlock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/ffmpeg/process/call_filter.h"

// Rights of later kernels than the headers' own.
#ifndef LANDLOCK_ACCESS_FS_REFER
#define LANDLOCK_ACCESS_FS_REFER (1ULL << 13)
#endif
#ifndef LANDLOCK_ACCESS_FS_TRUNCATE
#define LANDLOCK_ACCESS_FS_TRUNCATE (1ULL << 14)
#endif
#ifndef LANDLOCK_ACCESS_FS_IOCTL_DEV
#define LANDLOCK_ACCESS_FS_IOCTL_DEV (1ULL << 15)
#endif

namespace {

constexpr uint64_t kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr uint64_t kRun = kRead | LANDLOCK_ACCESS_FS_EXECUTE;
constexpr uint64_t kWriteFile = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_TRUNCATE;
constexpr uint64_t kChange = kRead | kWriteFile | LANDLOCK_ACCESS_FS_MAKE_REG |
                             LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                             LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REFER;
constexpr uint64_t kOnFiles =
    LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_EXECUTE | kWriteFile;
// Everything that the first Landlock knew: whatever no rule allows is denied.
constexpr uint64_t kFirstRights = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;

// The first Landlock cannot allow a rename from one folder into another, which publishing needs.
constexpr long kOldestUsefulVersion = 2;

constexpr const char* kSystemFolders[] = {"/usr", "/lib", "/lib32",    "/lib64",
                                          "/bin", "/opt", "/nix/store"};
constexpr rlim_t kDescriptors = 64;
constexpr rlim_t kStackBytes = 2 << 20;  // of each thread

// What a ruleset handles, and so denies where no rule allows it; older kernels know the first part.
struct Ruleset {
  uint64_t files;
  uint64_t network;
  uint64_t scoped;

  size_t sizeIn(long version) const {
    return version >= 6 ? sizeof(*this) : version >= 4 ? 2 * sizeof(uint64_t) : sizeof(uint64_t);
  }
};

Ruleset rulesetOfVersion(long version, bool supervises) {
  constexpr uint64_t kBindAndConnect = 3;
  constexpr uint64_t kAbstractSockets = 1;
  constexpr uint64_t kSignals = 2;
  return {.files = kFirstRights | LANDLOCK_ACCESS_FS_REFER |
                   (version >= 3 ? LANDLOCK_ACCESS_FS_TRUNCATE : 0) |
                   (version >= 5 ? LANDLOCK_ACCESS_FS_IOCTL_DEV : 0),
          .network = kBindAndConnect,
          .scoped = kAbstractSockets | (supervises ? 0 : kSignals)};
}

// The part of a program file that names what loads it: a script's interpreter is a program of its
// own, a native one's loader is not.
struct ProgramStart {
  bool isScript = false;
  std::string loader;
};

ProgramStart startOf(const std::string& path) {
  ProgramStart start;
  std::ifstream file(path, std::ios::binary);
  char magic[2] = "";
  file.read(magic, 2);
  start.isScript = file && magic[0] == '#' && magic[1] == '!';
  ElfW(Ehdr) header = {};
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(&header), sizeof(header))) return start;
  if (memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return start;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) part = {};
    file.seekg(static_cast<std::streamoff>(header.e_phoff + i * sizeof(part)));
    if (!file.read(reinterpret_cast<char*>(&part), sizeof(part))) break;
    if (part.p_type != PT_INTERP || part.p_filesz == 0 || part.p_filesz > PATH_MAX) continue;
    start.loader.resize(part.p_filesz - 1);  // its NUL stays behind
    file.seekg(static_cast<std::streamoff>(part.p_offset));
    file.read(start.loader.data(), static_cast<std::streamsize>(start.loader.size()));
    break;
  }
  return start;
}

void limit(decltype(RLIMIT_AS) what, rlim_t most) {
  rlimit now = {};
  if (getrlimit(what, &now) != 0) return;
  const rlim_t value = std::min(most, now.rlim_max);
  const rlimit wanted = {value, value};
  setrlimit(what, &wanted);
}

// Their shadow memory is beyond every limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

}  // namespace

void Sandbox::mayUseSystem() {
  for (const char* folder : kSystemFolders) {
    rules.push_back({folder, kRead});
  }
  for (const char* path : {"/etc/ld.so.cache", "/etc/ld.so.preload", "/etc/alternatives",
                           "/sys/devices/system", "/proc/self", "/proc/cpuinfo", "/proc/meminfo",
                           "/proc/sys", "/dev/urandom", "/dev/random", "/dev/zero"}) {
    rules.push_back({path, kRead});
  }
  rules.push_back({"/dev/null", LANDLOCK_ACCESS_FS_READ_FILE | kWriteFile});
  const char* libraries = getenv("LD_LIBRARY_PATH");
  std::istringstream folders(libraries ? libraries : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (folder.starts_with('/') && folder != "/") rules.push_back({folder, kRead});
  }
}

void Sandbox::mayRun(const std::string& path) {
  runsPrograms = true;
  rules.push_back({path, kRun});
  const size_t slash = path.rfind('/');
  if (slash != std::string::npos && slash > 0) rules.push_back({path.substr(0, slash), kRead});
  const ProgramStart start = startOf(path);
  if (!start.loader.empty()) rules.push_back({start.loader, kRun});
  if (!start.isScript) return;
  runsScripts = true;
  for (const char* folder : kSystemFolders) {
    rules.push_back({folder, kRun});
  }
}

void Sandbox::mayRead(const std::string& path) {
  rules.push_back({path, kRead});
}

void Sandbox::mayChange(const std::string& folder) {
  rules.push_back({folder, kChange});
}

void Sandbox::mayRemoveFolders(const std::string& folder) {
  rules.push_back({folder, LANDLOCK_ACCESS_FS_REMOVE_DIR});
}

void Sandbox::enterFileRules() const {
  const long version =
      syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < kOldestUsefulVersion) return;
  const Ruleset handled = rulesetOfVersion(version, supervises);
  const int ruleset =
      static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled, handled.sizeIn(version), 0));
  if (ruleset < 0) return;
  for (const Rule& rule : rules) {
    const int fd = open(rule.path.c_str(), O_PATH | O_CLOEXEC);
    if (fd < 0) continue;  // what is not there cannot be used
    struct stat status {};
    const bool isFolder = fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    landlock_path_beneath_attr beneath = {};
    beneath.parent_fd = fd;
    beneath.allowed_access = rule.access & handled.files & (isFolder ? ~uint64_t{0} : kOnFiles);
    syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &beneath, 0);
    close(fd);
  }
  syscall(SYS_landlock_restrict_self, ruleset, 0);
  close(ruleset);
}

void Sandbox::enterLimits() const {
  limit(RLIMIT_CORE, 0);
  if (supervises) return;
  limit(RLIMIT_NOFILE, kDescriptors);
  limit(RLIMIT_MEMLOCK, 0);
  if (!runsPrograms) limit(RLIMIT_NPROC, 0);
  if (runsPrograms) limit(RLIMIT_STACK, kStackBytes);
  if (fileBytes > 0) {
    signal(SIGXFSZ, SIG_IGN);  // the write fails instead, and says why
    limit(RLIMIT_FSIZE, static_cast<rlim_t>(fileBytes));
  }
  if (memoryBytes > 0 && (runsPrograms || !kIsInstrumented)) {
    limit(RLIMIT_DATA, static_cast<rlim_t>(memoryBytes));
  }
}

bool Sandbox::enter() const {
  if (TARN_CAGE == 0) return true;
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  enterFileRules();
  const CallRights rights = supervises     ? CallRights::Supervisor
                            : runsScripts  ? CallRights::Script
                            : runsPrograms ? CallRights::Program
                                           : CallRights::Reader;
  if (!giveUpCalls(rights)) return false;
  enterLimits();
  return true;
}
