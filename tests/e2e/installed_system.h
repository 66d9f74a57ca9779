// The installed system on a bus of its own: what a program on the device would meet.
#ifndef TESTS_E2E_INSTALLED_SYSTEM_H
#define TESTS_E2E_INSTALLED_SYSTEM_H

#include <string>
#include <vector>

#include "tests/support/private_bus.h"
#include "tests/support/temp_dir.h"

class InstalledSystem {
 public:
  using Result = tarn::test::BusClient::Result;

  // With `executable` that program is started on demand in the daemon's place.
  explicit InstalledSystem(const std::string& executable = "");

  // Calls a method of the daemon and waits for the outcome.
  Result call(const std::string& method, const std::string& payload);
  // Starts a call; wait with client().wait().
  std::shared_ptr<tarn::test::BusClient::Pending> start(const std::string& method,
                                                        const std::string& payload);
  // The daemon's process id, 0 when none runs.
  pid_t daemonPid();
  // Ends the daemon, so that the next call meets a fresh one.
  void endDaemon();

  tarn::test::BusClient& client() { return busClient; }
  const tarn::test::PrivateBus& bus() const { return privateBus; }
  // A folder for the test's files.
  const TempDir& files() const { return dir; }

 private:
  TempDir dir;
  tarn::test::PrivateBus privateBus;
  tarn::test::BusClient busClient;
};

extern const char kTranscode[];  // the service's name, also its interface's

// A path below the installed tree.
std::string installed(const std::string& path);

// {"inFile":IN,"outFile":OUT,"size":SIZE}
std::string resizeRequest(const std::string& in, const std::string& out, int size);

// What a command printed on stdout, and its exit code. stderr is left alone.
struct CommandOutput {
  std::string out;
  int exitCode;
};
CommandOutput runCommand(const std::string& shellCommand);

// A process's resident memory in kB, the processor time it has used, and its number of open
// descriptors.
long residentKb(pid_t pid);
double processorSeconds(pid_t pid);
long openDescriptors(pid_t pid);

#endif
