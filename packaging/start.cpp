// Starts the daemon with what it needs of this machine, wherever the tree is installed, and without
// what it has no use for.
#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "packaging/daemon_log.h"
#include "packaging/machine_plugins.h"

namespace {

// Who takes over the daemon by a photo should find no way from it to the network, to other
// processes or into the kernel. The daemon itself and the programs that it starts do without.
constexpr const char* kBarred[] = {
#ifndef __SANITIZE_ADDRESS__  // its leak checker stops the threads with it
    "ptrace",
#endif
    // other processes, and the kernel's tools for looking at them
    "process_vm_readv", "process_vm_writev", "process_madvise", "pidfd_getfd", "kcmp",
    "perf_event_open", "bpf", "userfaultfd", "io_uring_setup", "io_uring_enter",
    "io_uring_register", "add_key", "request_key", "keyctl", "syslog", "lookup_dcookie",
    // namespaces and mounts
    "unshare", "setns", "mount", "umount", "umount2", "pivot_root", "chroot", "open_tree",
    "move_mount", "fsopen", "fsconfig", "fsmount", "fspick", "mount_setattr", "name_to_handle_at",
    "open_by_handle_at", "quotactl", "quotactl_fd", "swapon", "swapoff",
    // the machine itself
    "acct", "reboot", "init_module", "finit_module", "delete_module", "kexec_load",
    "kexec_file_load", "iopl", "ioperm", "settimeofday", "clock_settime", "clock_settime64",
    "clock_adjtime", "clock_adjtime64", "adjtimex", "sethostname", "setdomainname"};

constexpr unsigned kNamespaces[] = {CLONE_NEWUSER, CLONE_NEWNS,  CLONE_NEWPID,   CLONE_NEWNET,
                                    CLONE_NEWIPC,  CLONE_NEWUTS, CLONE_NEWCGROUP};

using Filter = std::unique_ptr<void, void (*)(void*)>;

bool bar(const Filter& filter, const char* name, int error) {
  const int number = seccomp_syscall_resolve_name(name);
  return number == __NR_SCMP_ERROR ||
         seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number, 0) ==
             0;
}

bool barWhen(const Filter& filter, const char* name, scmp_arg_cmp argument, int error) {
  const int number = seccomp_syscall_resolve_name(name);
  return number == __NR_SCMP_ERROR ||
         seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number, 1,
                          argument) == 0;
}

// True also where the kernel has no such thing.
bool giveUpCalls() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  if (prctl(PR_GET_SECCOMP, 0, 0, 0, 0) < 0) return true;
  const Filter filter(seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
  bool whole = filter != nullptr;
  for (const char* name : kBarred) {
    whole = whole && bar(filter, name, EPERM);
  }
  // Its flags cannot be seen; callers then take clone.
  whole = whole && bar(filter, "clone3", ENOSYS);
  for (const unsigned kind : kNamespaces) {
    whole = whole && barWhen(filter, "clone", SCMP_A0(SCMP_CMP_MASKED_EQ, kind, kind), EPERM);
  }
  for (const char* name : {"socket", "socketpair"}) {
    whole = whole && barWhen(filter, name, SCMP_A0(SCMP_CMP_NE, AF_UNIX, 0), EAFNOSUPPORT);
  }
  return whole && seccomp_load(filter.get()) == 0;
}

// A folder that the environment names, "" when it does not.
std::string folderOf(const char* variable) {
  const char* value = getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

// A folder of our own with links to the machine's plug-ins, beside which GStreamer keeps what it
// knows of them: the first of these that can have them, "" when none can. A colon ends a path in a
// list of them.
std::string folderOfOurOwn(const std::vector<MachinePlugin>& plugins) {
  const std::string home = folderOf("HOME");
  for (const std::string& base : {folderOf("XDG_CACHE_HOME"), home.empty() ? "" : home + "/.cache",
                                  folderOf("XDG_RUNTIME_DIR")}) {
    if (base.empty() || base.find(':') != std::string::npos) continue;
    std::string folder = base + "/tarn-transcode";
    mkdir(base.c_str(), 0700);
    mkdir(folder.c_str(), 0700);
    if (linkPlugins(folder + "/plugins", plugins)) return folder;
  }
  return "";
}

// Our plug-ins, and beside them the machine's by our links.
std::string pluginFolders(const std::string& here, const std::string& ownFolder) {
  const std::string ours = here + "/" + TARN_PLUGINDIR_FROM_LIBEXEC;
  return ownFolder.empty() ? ours : ours + ":" + ownFolder + "/plugins";
}

void prepareEnvironment(const std::string& here, const std::string& ownFolder) {
  // Our ffmpeg and no other: where it is missing a movie is refused, not read without its care.
  setenv("PATH", (here + "/bin").c_str(), 1);

  // The few plug-ins of the daemon and a registry of its own: with all of the machine's, the first
  // start takes half a second. Beneath a device there can be no folder: GStreamer then looks at the
  // plug-ins at each start. Not right beneath it: GStreamer makes the folder of its registry the
  // user's own, and root would take /dev/null from all others.
  const std::string registry = (ownFolder.empty() ? "/dev/null/none" : ownFolder) + "/registry";
  setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
  setenv("GST_PLUGIN_PATH_1_0", "", 1);  // the command line tells, and nobody else
  setenv("GST_REGISTRY_1_0", (registry + ".bin").c_str(), 1);
  // GStreamer 0.10 reads these alone, 1.0 only where the ones above are missing.
  setenv("GST_PLUGIN_PATH", pluginFolders(here, ownFolder).c_str(), 1);
  setenv("GST_REGISTRY", (registry + "-0.10.bin").c_str(), 1);
  setenv("GST_REGISTRY_FORK", "no", 1);
  setenv("TARN_PLUGINS", (ownFolder + "/plugins").c_str(), 1);

  // Each thread keeps what it frees for its next request, and the threshold for giving it back
  // grows with the largest picture so far, unless it is fixed.
  setenv("MALLOC_TRIM_THRESHOLD_", "131072", 1);
  // One arena for the main thread and one for all that decode: a heap a thread is a leftover each.
  setenv("MALLOC_ARENA_MAX", "2", 1);
}

// Every child process leaves two descriptors open in the daemon.
void raiseDescriptorLimit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

std::string programFolder() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  if (length <= 0 || length == sizeof(path)) return "";
  const std::string whole(path, static_cast<size_t>(length));
  return whole.substr(0, whole.rfind('/'));
}

// The machine's plug-ins by our links or, without a folder for these, each by its path: all are
// then loaded at each start. That needs a GStreamer that remembers nothing: of the names which they
// share with ours, it would give them those.
std::vector<std::string> daemonArguments(const std::string& here, const std::string& ownFolder,
                                         const std::vector<MachinePlugin>& plugins) {
  const std::string folders = "--gst-plugin-path=" + pluginFolders(here, ownFolder);
  if (!ownFolder.empty()) return {folders};
  std::string paths;
  for (const MachinePlugin& plugin : plugins) {
    if (!plugin.path.empty()) paths += (paths.empty() ? "" : ",") + plugin.path;
  }
  return paths.empty() ? std::vector{folders} : std::vector{folders, "--gst-plugin-load=" + paths};
}

void tellMissing(const std::vector<MachinePlugin>& plugins) {
  for (const MachinePlugin& plugin : plugins) {
    if (!plugin.path.empty()) continue;
    fprintf(stderr,
            "tarn-transcode: GStreamer's plug-in %s is not on this machine, so no photo can "
            "be made; install it, or name its folder in GST_PLUGIN_SYSTEM_PATH_1_0\n",
            plugin.library.c_str());
  }
}

// Comes back when there is no such program.
void become(std::string program, std::vector<std::string> arguments) {
  std::vector<char*> words = {program.data()};
  for (std::string& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  execv(program.c_str(), words.data());
}

int fail(const char* what) {
  fprintf(stderr, "tarn-transcode: %s: %s\n", what, strerror(errno));
  return EXIT_FAILURE;
}

}  // namespace

int main() {
  const std::string here = programFolder();
  if (here.empty()) return fail("/proc/self/exe");
  if (here.find(':') != std::string::npos) {
    fprintf(stderr, "tarn-transcode: no program can be found in a folder with a colon: %s\n",
            here.c_str());
    return EXIT_FAILURE;
  }
  const std::vector<MachinePlugin> plugins = findMachinePlugins();
  const std::string ownFolder = folderOfOurOwn(plugins);
  prepareEnvironment(here, ownFolder);
  raiseDescriptorLimit();
  if (!giveUpCalls()) return fail("the system calls that nobody needs cannot be given up");
  const int formerError = redirectOutput();
  tellMissing(plugins);
  const std::string daemon = here + "/transcoded";
  become(daemon, daemonArguments(here, ownFolder, plugins));
  if (formerError >= 0) dup2(formerError, STDERR_FILENO);
  return fail(daemon.c_str());
}
