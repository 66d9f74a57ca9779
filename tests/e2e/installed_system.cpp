#include "tests/e2e/installed_system.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>

using tarn::test::BusClient;
using tarn::test::PrivateBus;

const char kTranscode[] = "com.tarn.transcode";

namespace {

PrivateBus::Options busOptions(const std::string& executable, const TempDir& dir) {
  std::filesystem::create_directory(dir / "run");  // as who logs in finds it
  PrivateBus::Options options;
  options.environment = {
      {"XDG_CACHE_HOME", dir / "cache"}, {"XDG_RUNTIME_DIR", dir / "run"}, {"TARN_LOG", "-"}};
  options.serviceDirs = {installed("share/dbus-1/services")};
  if (!executable.empty()) options.services = {{kTranscode, executable}};  // comes before those
  return options;
}

}  // namespace

std::string installed(const std::string& path) {
  return std::string(TARN_STAGE) + "/" + path;
}

InstalledSystem::InstalledSystem(const std::string& executable)
    : privateBus(busOptions(executable, dir)), busClient(privateBus.address()) {}

InstalledSystem::Result InstalledSystem::call(const std::string& method,
                                              const std::string& payload) {
  return busClient.call(kTranscode, "/", kTranscode, method, payload);
}

std::shared_ptr<BusClient::Pending> InstalledSystem::start(const std::string& method,
                                                           const std::string& payload) {
  return busClient.start(kTranscode, "/", kTranscode, method, g_variant_new("(s)", payload.c_str()),
                         120000);
}

pid_t InstalledSystem::daemonPid() {
  return busClient.processOf(kTranscode);
}

void InstalledSystem::endDaemon() {
  const pid_t pid = daemonPid();
  if (pid == 0) return;
  kill(pid, SIGKILL);
  busClient.waitForName(kTranscode, false);
}

std::string resizeRequest(const std::string& in, const std::string& out, int size) {
  return R"({"inFile":")" + in + R"(","outFile":")" + out + R"(","size":)" + std::to_string(size) +
         "}";
}

CommandOutput runCommand(const std::string& shellCommand) {
  CommandOutput output = {"", -1};
  FILE* pipe = popen(shellCommand.c_str(), "r");
  if (pipe == nullptr) return output;
  char chunk[4096];
  size_t length;
  while ((length = fread(chunk, 1, sizeof chunk, pipe)) > 0) {
    output.out.append(chunk, length);
  }
  const int status = pclose(pipe);
  output.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return output;
}

long residentKb(pid_t pid) {
  long pages = 0;
  const std::string content = readFile("/proc/" + std::to_string(pid) + "/statm");
  sscanf(content.c_str(), "%*d %ld", &pages);
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

double processorSeconds(pid_t pid) {
  const std::string content = readFile("/proc/" + std::to_string(pid) + "/stat");
  const size_t name = std::min(content.rfind(')'), content.size());
  long user = 0;
  long kernel = 0;
  sscanf(content.c_str() + name, ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user,
         &kernel);
  return static_cast<double>(user + kernel) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

long openDescriptors(pid_t pid) {
  long count = 0;
  const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
    ++count;
  }
  return count;
}
