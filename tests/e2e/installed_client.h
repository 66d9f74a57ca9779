// The installed client in a folder of its own, on a bus of its own.
#ifndef TESTS_E2E_INSTALLED_CLIENT_H
#define TESTS_E2E_INSTALLED_CLIENT_H

#include <filesystem>
#include <string>

#include "tests/e2e/installed_system.h"

// Runs it in the folder w of the test; stderr goes to errors().
class InstalledClient {
 public:
  // With `executable` that program is started on demand in the daemon's place.
  explicit InstalledClient(const std::string& executable = "") : system(executable) {
    std::filesystem::create_directory(dir / "w");
    std::filesystem::create_directory(dir / "run");
  }

  // The shell command; `environment`: more variables, "NAME=value".
  std::string command(const std::string& words, const std::string& environment = "") const {
    return "cd " + (dir / "w") + " && DBUS_SESSION_BUS_ADDRESS='" + system.bus().address() +
           "' XDG_RUNTIME_DIR='" + (dir / "run") + "' " + environment + " " +
           installed("bin/tarn-transcode") + " " + words;
  }
  CommandOutput run(const std::string& words) const {
    return runCommand(command(words) + " 2>" + (dir / "errors"));
  }
  // The same on a terminal of its own; what it shows is the output.
  CommandOutput runOnTerminal(const std::string& words, const std::string& environment = "") const {
    const std::string inner = dir.write("inner", command(words, environment));
    return runCommand("script -qefc 'sh " + inner + "' /dev/null </dev/null");
  }
  std::string errors() const { return readFile(dir / "errors"); }

  InstalledSystem system;
  const TempDir& dir = system.files();
};

#endif
