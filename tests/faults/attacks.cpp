#include "tests/faults/attacks.h"

#include <fcntl.h>
#include <linux/keyctl.h>
#include <mqueue.h>
#include <sched.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr char kSecret[] = "the secret";
constexpr mode_t kMode = 0640;

class Attacker {
 public:
  explicit Attacker(const Victim& victim) : prey(victim), secret(victim.folder + "/secret") {}

  AttackReport run() {
    files();
    rights();
    processes();
    channels();
    memory();
    return report;
  }

 private:
  // An attack succeeded when the call did not give -1.
  void attempt(const std::string& name, long result) {
    ++report.tried;
    if (result != -1) report.succeeded.push_back(name);
  }

  void files() {
    attempt("read a file", open(secret.c_str(), O_RDONLY));
    attempt("write a file", open(secret.c_str(), O_WRONLY));
    attempt("cut a file", truncate(secret.c_str(), 0));
    attempt("read a folder", open(prey.folder.c_str(), O_RDONLY | O_DIRECTORY));
    attempt("make a file", open((prey.folder + "/new").c_str(), O_CREAT | O_WRONLY, 0600));
    attempt("make a folder", mkdir((prey.folder + "/folder").c_str(), 0700));
    attempt("make a link", symlink("/etc/passwd", (prey.folder + "/link").c_str()));
    attempt("make a pipe", mkfifo((prey.folder + "/pipe").c_str(), 0600));
    attempt("link a file", link(secret.c_str(), (prey.folder + "/hard").c_str()));
    attempt("rename a file", rename(secret.c_str(), (prey.folder + "/other").c_str()));
    attempt("read the user's names", open("/etc/passwd", O_RDONLY));
    attempt("read another's memory",
            open(("/proc/" + std::to_string(prey.process) + "/mem").c_str(), O_RDWR));
    attempt("remove a file", unlink(secret.c_str()));
  }

  void rights() {
    attempt("chmod", chmod(secret.c_str(), 0777));
    attempt("fchmodat", fchmodat(AT_FDCWD, secret.c_str(), 0777, 0));
    attempt("chown", chown(secret.c_str(), getuid(), getgid()));
    attempt("lchown", lchown(secret.c_str(), getuid(), getgid()));
    attempt("utimensat", utimensat(AT_FDCWD, secret.c_str(), nullptr, 0));
    attempt("setxattr", setxattr(secret.c_str(), "user.attack", "x", 1, 0));
  }

  void processes() {
    attempt("kill", kill(prey.process, 0));
    attempt("kill the parent", kill(getppid(), 0));
    attempt("kill all", kill(-1, 0));
    attempt("tgkill", syscall(SYS_tgkill, prey.process, prey.process, 0));
    attempt("tkill", syscall(SYS_tkill, prey.process, 0));
    siginfo_t info = {};
    info.si_code = SI_QUEUE;
    attempt("sigqueue", syscall(SYS_rt_sigqueueinfo, prey.process, 0, &info));
    attempt("pidfd", syscall(SYS_pidfd_open, prey.process, 0));
    attempt("own a file's signals", fcntl(STDIN_FILENO, F_SETOWN, prey.process));
    const rlimit limit = {1, 1};
    attempt("limit another", prlimit(prey.process, RLIMIT_CPU, &limit, nullptr));
    attempt("slow another down", setpriority(PRIO_PROCESS, static_cast<id_t>(prey.process), 19));
    attempt("trace", ptrace(PTRACE_SEIZE, prey.process, nullptr, nullptr));
    char byte = 0;
    iovec here = {&byte, 1};
    iovec there = {&byte, 1};
    attempt("read another's memory at once",
            process_vm_readv(prey.process, &here, 1, &there, 1, 0));
    attempt("fork", fork());
    attempt("a namespace", unshare(CLONE_NEWUSER));
    attempt("a child in a namespace", syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, 0, 0, 0, 0));
    attempt("mount", mount("none", "/mnt", "tmpfs", 0, nullptr));
    attempt("chroot", chroot("/"));
  }

  void channels() {
    for (const int family : {AF_UNIX, AF_INET, AF_INET6, AF_NETLINK}) {
      attempt("socket " + std::to_string(family), socket(family, SOCK_DGRAM, 0));
    }
    int pair[2];
    attempt("socketpair", socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
    attempt("io_uring", syscall(SYS_io_uring_setup, 1, nullptr));
    attempt("memfd", memfd_create("attack", 0));
    attempt("shared memory", shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600));
    attempt("message queue", mq_open("/attack", O_CREAT | O_RDWR, 0600, nullptr));
    attempt("keyring", syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_USER_KEYRING, 1));
    attempt("watch files", inotify_init1(0));
    attempt("bpf", syscall(SYS_bpf, 0, nullptr, 0));
    attempt("perf", syscall(SYS_perf_event_open, nullptr, 0, -1, -1, 0));
    attempt("userfaultfd", syscall(SYS_userfaultfd, 0));
  }

  void memory() {
    constexpr size_t kTooMuch = size_t{2} << 30;
    void* got = mmap(nullptr, kTooMuch, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    attempt("2 GiB of memory", got == MAP_FAILED ? -1 : 0);
    rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
    rlimit now = {};
    getrlimit(RLIMIT_DATA, &now);
    const bool isFree = setrlimit(RLIMIT_DATA, &none) == 0 && now.rlim_cur != RLIM_INFINITY;
    attempt("lift the limits", isFree && geteuid() != 0 ? 0 : -1);
  }

  const Victim& prey;
  const std::string secret;
  AttackReport report;
};

}  // namespace

AttackReport attack(const Victim& victim) {
  return Attacker(victim).run();
}

std::string toldAttack(const Victim& victim) {
  AttackReport report = attack(victim);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  std::erase(report.succeeded, "2 GiB of memory");
#endif
  std::string text = report.tried > 40 ? "tried" : "";
  for (const std::string& name : report.succeeded) {
    text += "\n" + name;
  }
  return text;
}

LivingVictim::LivingVictim() {
  std::string folder = fs::temp_directory_path() / "victim-XXXXXX";
  if (!mkdtemp(folder.data())) throw std::runtime_error("mkdtemp failed");
  prey.folder = folder;
  std::ofstream(folder + "/secret") << kSecret;
  chmod((folder + "/secret").c_str(), kMode);
  prey.process = fork();
  if (prey.process != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) {
    pause();
  }
}

LivingVictim::~LivingVictim() {
  kill(prey.process, SIGKILL);
  waitpid(prey.process, nullptr, 0);
  fs::remove_all(prey.folder);
}

bool LivingVictim::isUnharmed() const {
  std::string content;
  std::getline(std::ifstream(prey.folder + "/secret"), content);
  struct stat status {};
  stat((prey.folder + "/secret").c_str(), &status);
  const auto names = std::distance(fs::directory_iterator(prey.folder), {});
  return content == kSecret && (status.st_mode & 0777) == kMode && names == 1 &&
         getpriority(PRIO_PROCESS, static_cast<id_t>(prey.process)) <=
             getpriority(PRIO_PROCESS, 0) &&
         waitpid(prey.process, nullptr, WNOHANG) == 0;
}
