// A message bus of a test's own, and a plain client for it.
//
// Thread: a PrivateBus lives and dies with the thread that made it (so that a crashed test leaves
// no bus behind); a BusClient is used by one thread at a time.
#ifndef TESTS_SUPPORT_PRIVATE_BUS_H
#define TESTS_SUPPORT_PRIVATE_BUS_H

#include <gio/gio.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/temp_dir.h"

namespace tarn::test {

// A dbus-daemon of the session type, with limits no test meets, that passes everything on, even
// replies nobody asked for. It accepts connections when the constructor returns; a failure to start
// throws std::runtime_error.
class PrivateBus {
 public:
  struct Service {
    std::string name;
    std::string exec;  // the Exec= line: absolute program and arguments
  };
  struct Options {
    std::vector<Service> services;                                 // started on demand
    std::vector<std::string> serviceDirs;                          // folders of *.service files
    std::vector<std::pair<std::string, std::string>> environment;  // for activated services
  };

  PrivateBus() : PrivateBus(Options{}) {}
  explicit PrivateBus(const Options& options);
  // Kills the bus, waits for its end and removes its files.
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return busAddress; }
  // -1 once stopped.
  pid_t pid() const { return daemonPid; }
  // A folder that goes with the bus; for whatever the test wants to leave there.
  const std::string& directory() const { return dir.path(); }
  // What the bus and the services it started have printed.
  std::string log() const;
  // What a child program needs to meet this bus: this process's environment, as NAME=value, with
  // the session bus address set.
  std::vector<std::string> environment() const;

  // Kills the bus as a crash would. A second call does nothing.
  void stop();

 private:
  void writeFiles(const Options& options) const;
  void start(const Options& options);

  TempDir dir;
  std::string busAddress;
  pid_t daemonPid = -1;
};

// One client connection, with its own main context: it needs no running loop.
class BusClient {
 public:
  struct Result {
    bool ok = false;
    std::string reply;         // the string of an (s) reply, else the reply as GVariant text
    std::string errorName;     // a D-Bus error name
    std::string errorMessage;  // without GDBus's prefix
  };
  // A call under way.
  class Pending;

  explicit BusClient(const std::string& address);
  ~BusClient();
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  static constexpr int kTimeoutMs = 30000;

  // Calls a method(s) and waits. An empty interface sends none.
  Result call(const std::string& destination, const std::string& path, const std::string& interface,
              const std::string& method, const std::string& payload, int timeoutMs = kTimeoutMs);
  // The same with any arguments: a tuple (a floating one is taken) or null.
  Result callRaw(const std::string& destination, const std::string& path,
                 const std::string& interface, const std::string& method, GVariant* arguments,
                 int timeoutMs = kTimeoutMs);

  // Sends a call; its message has left the process when this returns.
  std::shared_ptr<Pending> start(const std::string& destination, const std::string& path,
                                 const std::string& interface, const std::string& method,
                                 GVariant* arguments, int timeoutMs = kTimeoutMs);
  // Waits for the outcome.
  Result wait(const std::shared_ptr<Pending>& pending);
  // Whether the outcome is here already.
  bool isDone(const std::shared_ptr<Pending>& pending);
  // Sends a call that wants no reply.
  void post(const std::string& destination, const std::string& path, const std::string& interface,
            const std::string& method, const std::string& payload);

  // Returns when the bus has routed everything sent before.
  void sync();
  // Whether the name came (or went) in time.
  bool waitForName(const std::string& name, bool present, int deadlineMs = kTimeoutMs);
  // The unique name behind a name, "" for none.
  std::string ownerOf(const std::string& name);
  // The process behind a name, 0 for none.
  pid_t processOf(const std::string& name);
  // For what the above does not do. Borrowed.
  GDBusConnection* raw() const { return connection; }

 private:
  GDBusMessage* newCall(const std::string& destination, const std::string& path,
                        const std::string& interface, const std::string& method,
                        GVariant* arguments);

  GMainContext* context = nullptr;
  GDBusConnection* connection = nullptr;
};

}  // namespace tarn::test

#endif
