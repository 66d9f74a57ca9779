// What this process and everything it starts may still do once it has entered the sandbox.
#ifndef PLATFORM_FFMPEG_PROCESS_SANDBOX_H
#define PLATFORM_FFMPEG_PROCESS_SANDBOX_H

#include <cstdint>
#include <string>
#include <vector>

// Built up first, entered once. Entering another one afterwards only ever narrows further.
//
// Nothing is allowed that was not asked for here: no file, no program, no other process. Sockets,
// namespaces, other processes' memory, keys, mounts and memory files are never allowed.
// Where the kernel lacks Landlock files stay reachable, and where it lacks seccomp system calls do:
// the lists of formats and protocols hold without either.
class Sandbox {
 public:
  // Libraries, and what the system tells programs about itself.
  void mayUseSystem();
  // The program at `path` and no other. One that is a script may run the system's programs too.
  void mayRun(const std::string& path);
  void mayRead(const std::string& path);
  // Everything beneath an existing folder: make, change, rename and remove.
  void mayChange(const std::string& folder);
  // Empty folders beneath it, and nothing else.
  void mayRemoveFolders(const std::string& folder);
  // Start processes, end them, and set the rights of its own files.
  void maySupervise() { supervises = true; }

  // What cannot be had then fails as on a machine that has no more: memory that this process
  // writes to, threads' stacks included, and the size of each file that it writes. 0 is no limit.
  void limitMemory(int64_t bytes) { memoryBytes = bytes; }
  void limitFiles(int64_t bytes) { fileBytes = bytes; }

  // From here on nothing else is possible. Safe between fork and exec of a single-threaded process.
  // False when the kernel could bar system calls but did not.
  bool enter() const;

 private:
  struct Rule {
    std::string path;
    uint64_t access;
  };
  void enterFileRules() const;
  void enterLimits() const;

  std::vector<Rule> rules;
  bool supervises = false;
  bool runsPrograms = false;
  bool runsScripts = false;
  int64_t memoryBytes = 0;
  int64_t fileBytes = 0;
};

#endif
