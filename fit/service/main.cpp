// com.tarn.Fit1, as the bus starts it: fitd [--idle-seconds=N]
#include <gio/gio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fit/service/fit_service.h"

namespace {

constexpr guint kIdleSeconds = 10;
constexpr char kIdleOption[] = "--idle-seconds=";

// Each job holds two descriptors and a pipe.
void raiseDescriptorLimit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// The workers are beside this program, wherever the tree is installed.
std::string workerFolder() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0 || length == sizeof path) return "";
  const std::string whole(path, static_cast<size_t>(length));
  return whole.substr(0, whole.rfind('/'));
}

int fail(const std::string& reason) {
  fprintf(stderr, "com.tarn.Fit1: %s\n", reason.c_str());
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  guint idleSeconds = kIdleSeconds;
  if (argc > 1 && strncmp(argv[1], kIdleOption, sizeof kIdleOption - 1) == 0) {
    idleSeconds = static_cast<guint>(strtoul(argv[1] + sizeof kIdleOption - 1, nullptr, 10));
  }
  raiseDescriptorLimit();
  GError* failure = nullptr;
  const ObjectRef<GDBusConnection> connection(
      g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &failure));
  if (!connection) {
    const ErrorRef owned(failure);
    return fail(failure->message);
  }
  FitService service(connection.get(), workerFolder(), idleSeconds);
  std::string error;
  return service.run(&error) ? EXIT_SUCCESS : fail(error);
}
