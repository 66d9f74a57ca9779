// What this process and everything it starts may still do once it has entered the sandbox.
#ifndef PLATFORM_FFMPEG_PROCESS_SANDBOX_H
#define PLATFORM_FFMPEG_PROCESS_SANDBOX_H

#include <cstdint>
#include <string>
#include <vector>

// Built up first, entered once. Entering twice only ever narrows further.
// Where the kernel lacks Landlock files stay reachable, and where it lacks seccomp sockets do: the
// lists of formats and protocols hold without either.
class Sandbox {
 public:
  // Programs, their libraries and what the system tells them about itself.
  void mayUseSystem();
  // The program at `path`, its folder included, which may hold more of it.
  void mayRun(const std::string& path);
  void mayRead(const std::string& path);
  // Everything beneath an existing folder: make, change, rename and remove.
  void mayChange(const std::string& folder);

  // From here on there are no sockets, and no files but those allowed. Safe between fork and exec
  // of a single-threaded process. False when the kernel could bar sockets but did not.
  bool enter() const;

 private:
  struct Rule {
    std::string path;
    uint64_t access;
  };
  void enterFileRules() const;

  std::vector<Rule> rules;
};

#endif
