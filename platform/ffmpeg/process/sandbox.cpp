#include "platform/ffmpeg/process/sandbox.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <sstream>

// Rights of later kernels than the headers' own.
#ifndef LANDLOCK_ACCESS_FS_REFER
#define LANDLOCK_ACCESS_FS_REFER (1ULL << 13)
#endif
#ifndef LANDLOCK_ACCESS_FS_TRUNCATE
#define LANDLOCK_ACCESS_FS_TRUNCATE (1ULL << 14)
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

uint64_t rightsOfVersion(long version) {
  return kFirstRights | LANDLOCK_ACCESS_FS_REFER | (version >= 3 ? LANDLOCK_ACCESS_FS_TRUNCATE : 0);
}

bool barSockets() {
  const bool kernelHasFilters = prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0;
  if (!kernelHasFilters) return true;
  const std::unique_ptr<void, void (*)(void*)> filter(seccomp_init(SCMP_ACT_ALLOW),
                                                      [](void* f) { seccomp_release(f); });
  if (!filter) return false;
  // io_uring opens sockets by itself; older kernels and libraries may not know it.
  for (const char* name : {"socket", "socketpair", "io_uring_setup"}) {
    const int number = seccomp_syscall_resolve_name(name);
    if (number == __NR_SCMP_ERROR) continue;
    if (seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EACCES), number, 0) != 0) return false;
  }
  return seccomp_load(filter.get()) == 0;
}

}  // namespace

void Sandbox::mayUseSystem() {
  for (const char* folder : {"/usr", "/lib", "/lib32", "/lib64", "/bin", "/opt", "/nix/store"}) {
    rules.push_back({folder, kRun});
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
    if (folder.starts_with('/') && folder != "/") rules.push_back({folder, kRun});
  }
}

void Sandbox::mayRun(const std::string& path) {
  const size_t slash = path.rfind('/');
  rules.push_back({path, kRun});
  if (slash != std::string::npos && slash > 0) rules.push_back({path.substr(0, slash), kRun});
}

void Sandbox::mayRead(const std::string& path) {
  rules.push_back({path, kRead});
}

void Sandbox::mayChange(const std::string& folder) {
  rules.push_back({folder, kChange});
}

void Sandbox::enterFileRules() const {
  const long version =
      syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < kOldestUsefulVersion) return;
  landlock_ruleset_attr handled = {};
  handled.handled_access_fs = rightsOfVersion(version);
  const int ruleset =
      static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled, sizeof(handled), 0));
  if (ruleset < 0) return;
  for (const Rule& rule : rules) {
    const int fd = open(rule.path.c_str(), O_PATH | O_CLOEXEC);
    if (fd < 0) continue;  // what is not there cannot be used
    struct stat status {};
    const bool isFolder = fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    landlock_path_beneath_attr beneath = {};
    beneath.parent_fd = fd;
    beneath.allowed_access =
        rule.access & handled.handled_access_fs & (isFolder ? ~uint64_t{0} : kOnFiles);
    syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &beneath, 0);
    close(fd);
  }
  syscall(SYS_landlock_restrict_self, ruleset, 0);
  close(ruleset);
}

bool Sandbox::enter() const {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  enterFileRules();
  return barSockets();
}
