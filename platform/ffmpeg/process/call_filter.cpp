#include "platform/ffmpeg/process/call_filter.h"

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <memory>
#include <span>

namespace {

constexpr scmp_datum_t kIntMask = 0xffffffff;  // the kernel reads no more of an int argument

// Nobody here needs these: ways to the network and to other processes, and what only a system's
// own tools have a use for.
constexpr const char* kNobodys[] = {
    "socket", "socketpair", "io_uring_setup", "memfd_create", "memfd_secret",
    // other processes' memory and descriptors, and the kernel's own tools
    "process_vm_readv", "process_vm_writev", "process_madvise", "process_mrelease", "pidfd_open",
    "pidfd_getfd", "kcmp", "perf_event_open", "bpf", "userfaultfd", "syslog", "lookup_dcookie",
    "add_key", "request_key", "keyctl",
    // namespaces and mounts
    "unshare", "setns", "mount", "umount", "umount2", "pivot_root", "chroot", "open_tree",
    "move_mount", "fsopen", "fsconfig", "fsmount", "fspick", "mount_setattr", "name_to_handle_at",
    "open_by_handle_at", "quotactl", "quotactl_fd", "swapon", "swapoff",
    // memory and queues shared by key, and a watch on what others do with files
    "shmget", "shmat", "shmctl", "msgget", "msgctl", "msgsnd", "msgrcv", "semget", "semctl",
    "semop", "semtimedop", "mq_open", "mq_unlink", "fanotify_init", "inotify_init", "inotify_init1",
    // the machine itself
    "acct", "reboot", "init_module", "finit_module", "delete_module", "kexec_load",
    "kexec_file_load", "iopl", "ioperm", "vhangup", "settimeofday", "clock_settime",
    "clock_settime64", "clock_adjtime", "clock_adjtime64", "adjtimex", "sethostname",
    "setdomainname", "move_pages", "migrate_pages"};

// Landlock has no say over these: who may do what with a file, and when it was changed.
constexpr const char* kFileRights[] = {
    "chmod",     "fchmod",     "fchmodat",    "fchmodat2",        "chown",        "fchown",
    "lchown",    "fchownat",   "chown32",     "fchown32",         "lchown32",     "utime",
    "utimes",    "futimesat",  "utimensat",   "utimensat_time64", "setxattr",     "lsetxattr",
    "fsetxattr", "setxattrat", "removexattr", "lremovexattr",     "fremovexattr", "removexattrat"};

// What reaches other processes by their number.
constexpr const char* kOtherProcesses[] = {
    "tkill",      "rt_sigqueueinfo",    "rt_tgsigqueueinfo", "pidfd_send_signal", "setpriority",
    "ioprio_set", "sched_setscheduler", "sched_setparam",    "sched_setattr",     "setpgid",
    "setsid"};

constexpr const char* kForks[] = {"fork", "vfork"};
constexpr const char* kStarts[] = {"clone", "execve", "execveat"};

// With it the leak checker of an instrumented build stops the threads at the end.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kSupervisorTraces = true;
#else
constexpr bool kSupervisorTraces = false;
#endif

class CallFilter {
 public:
  CallFilter() : filter(seccomp_init(SCMP_ACT_ALLOW), seccomp_release) {}

  void bar(std::span<const char* const> names, int error = EACCES) {
    for (const char* name : names) {
      barWhen(name, {}, error);
    }
  }

  // Bars the call where its arguments are like that. A name that this machine has no call of is
  // nothing to bar.
  void barWhen(const char* name, std::initializer_list<scmp_arg_cmp> arguments,
               int error = EACCES) {
    const int number = seccomp_syscall_resolve_name(name);
    if (!filter || number == __NR_SCMP_ERROR) return;
    const int failure =
        seccomp_rule_add_array(filter.get(), SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number,
                               static_cast<unsigned>(arguments.size()), arguments.begin());
    isWhole = isWhole && failure == 0;
  }

  bool load() const { return filter && isWhole && seccomp_load(filter.get()) == 0; }

 private:
  std::unique_ptr<void, void (*)(void*)> filter;
  bool isWhole = true;
};

void barNamespaces(CallFilter* filter) {
  constexpr scmp_datum_t kNamespaces[] = {CLONE_NEWUSER, CLONE_NEWNS,  CLONE_NEWPID,   CLONE_NEWNET,
                                          CLONE_NEWIPC,  CLONE_NEWUTS, CLONE_NEWCGROUP};
  for (const scmp_datum_t flag : kNamespaces) {
    filter->barWhen("clone", {SCMP_A0(SCMP_CMP_MASKED_EQ, flag, flag)});
  }
  filter->barWhen("clone3", {},
                  ENOSYS);  // its flags cannot be seen; callers then take the one before
}

// Signals go to itself only: a filter has no greater-than for the number of another's group.
void barOtherProcesses(CallFilter* filter) {
  filter->bar(kOtherProcesses);
  const auto self = static_cast<scmp_datum_t>(getpid());
  filter->barWhen("tgkill", {SCMP_A0(SCMP_CMP_NE, self, 0)});
  filter->barWhen("kill", {SCMP_A0(SCMP_CMP_NE, self, 0)});
  filter->barWhen("prlimit64", {SCMP_A0(SCMP_CMP_NE, 0, 0)});
  for (const int command : {F_SETOWN, F_SETOWN_EX, F_SETSIG}) {
    for (const char* name : {"fcntl", "fcntl64"}) {
      filter->barWhen(name,
                      {SCMP_A1(SCMP_CMP_MASKED_EQ, kIntMask, static_cast<scmp_datum_t>(command))});
    }
  }
}

}  // namespace

bool giveUpCalls(CallRights rights) {
  const bool kernelHasFilters = prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0;
  if (!kernelHasFilters) return true;
  CallFilter filter;
  filter.bar(kNobodys);
  if (!kSupervisorTraces || rights != CallRights::Supervisor) filter.barWhen("ptrace", {});
  barNamespaces(&filter);
  if (rights != CallRights::Supervisor) {
    filter.bar(kFileRights, EPERM);
    barOtherProcesses(&filter);
  }
  if (rights == CallRights::Program) {
    filter.bar(kForks);
    filter.barWhen("clone", {SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0)});
  }
  if (rights == CallRights::Reader) {
    filter.bar(kForks);
    filter.bar(kStarts);
  }
  return filter.load();
}
