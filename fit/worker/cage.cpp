#include "fit/worker/cage.h"

#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <memory>

namespace {

// Needed by memory, clocks and the end of a process, whatever their arguments.
constexpr const char* kHarmless[] = {
    "brk",       "munmap",          "mremap",         "madvise",
    "futex",     "clock_gettime",   "exit",           "getpid",
    "gettid",    "clock_gettime64", "exit_group",     "restart_syscall",
    "getrandom", "sched_yield",     "rt_sigprocmask", "rt_sigreturn",
    "sigreturn", "sigaltstack",     "futex_time64"};

// Their shadow memory is beyond every limit, and whether an address is theirs they try by a pipe.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

class AllowList {
 public:
  AllowList() : filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)), seccomp_release) {
    // Threads that a library has started already are caged along.
    isWhole = filter && seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1) == 0;
  }

  // A name that this machine has no call of is nothing to allow.
  void allow(const char* name, std::initializer_list<scmp_arg_cmp> arguments = {}) {
    const int number = seccomp_syscall_resolve_name(name);
    if (!filter || number == __NR_SCMP_ERROR) return;
    isWhole = isWhole && seccomp_rule_add_array(filter.get(), SCMP_ACT_ALLOW, number,
                                                static_cast<unsigned>(arguments.size()),
                                                arguments.begin()) == 0;
  }
  void refuse(const char* name, int error) {
    const int number = seccomp_syscall_resolve_name(name);
    if (!filter || number == __NR_SCMP_ERROR) return;
    isWhole = isWhole &&
              seccomp_rule_add_array(filter.get(), SCMP_ACT_ERRNO(error), number, 0, nullptr) == 0;
  }
  bool load() const { return filter && isWhole && seccomp_load(filter.get()) == 0; }

 private:
  std::unique_ptr<void, void (*)(void*)> filter;
  bool isWhole = true;
};

void allowMemory(AllowList* list) {
  for (const char* name : {"mmap", "mmap2"}) {
    list->allow(name, {SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0),
                       SCMP_A3(SCMP_CMP_MASKED_EQ, MAP_ANONYMOUS, MAP_ANONYMOUS)});
  }
  list->allow("mprotect", {SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)});
}

void allowDescriptors(AllowList* list) {
  list->allow("pread64", {SCMP_A0(SCMP_CMP_EQ, STDIN_FILENO, 0)});
  list->allow("pwrite64", {SCMP_A0(SCMP_CMP_EQ, STDOUT_FILENO, 0)});
  for (const char* name : {"ftruncate", "ftruncate64"}) {
    list->allow(name, {SCMP_A0(SCMP_CMP_EQ, STDOUT_FILENO, 0)});
  }
  list->allow("write", {SCMP_A0(SCMP_CMP_EQ, STDERR_FILENO, 0)});
  if (!kIsInstrumented) return;
  list->allow("write", {SCMP_A0(SCMP_CMP_GT, STDERR_FILENO, 0)});
  for (const char* name : {"pipe", "pipe2", "close"}) {
    list->allow(name);
  }
}

// The thread shares all with this process, so that it is no way out of it. Of clone3 the kernel
// looks at memory, which no filter can: it is told to be missing, and clone is taken instead.
void allowThreads(AllowList* list) {
  constexpr scmp_datum_t kShares = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD;
  list->allow("clone", {SCMP_A0(SCMP_CMP_MASKED_EQ, kShares, kShares)});
  list->refuse("clone3", ENOSYS);
  for (const char* name : {"set_robust_list", "rseq", "sched_getaffinity", "set_tid_address"}) {
    list->allow(name);
  }
}

void limit(decltype(RLIMIT_AS) what, rlim_t most) {
  const rlimit wanted = {most, most};
  setrlimit(what, &wanted);
}

void enterLimits(const CageLimits& limits) {
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_NOFILE, kIsInstrumented ? 16 : 0);
  if (!limits.hasThreads) limit(RLIMIT_NPROC, 0);
  limit(RLIMIT_MEMLOCK, 0);
  limit(RLIMIT_FSIZE, static_cast<rlim_t>(limits.outputBytes));
  limit(RLIMIT_CPU, static_cast<rlim_t>(limits.processorSeconds));
  if (!kIsInstrumented) limit(RLIMIT_DATA, static_cast<rlim_t>(limits.memoryBytes));
}

}  // namespace

bool enterCage(const CageLimits& limits) {
  if (TARN_CAGE == 0) return true;
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  const bool kernelHasFilters = prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0;
  enterLimits(limits);
  if (!kernelHasFilters) return true;
  AllowList list;
  for (const char* name : kHarmless) {
    list.allow(name);
  }
  allowMemory(&list);
  allowDescriptors(&list);
  if (limits.hasThreads) allowThreads(&list);
  return list.load();
}
