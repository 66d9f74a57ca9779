// A process that does nothing but wait for our end, to remove what a killed one cannot.
#ifndef PLATFORM_FFMPEG_FILES_JANITOR_H
#define PLATFORM_FFMPEG_FILES_JANITOR_H

#include <sys/types.h>

#include <string>
#include <vector>

// Removes `paths`, folders with all they hold, as soon as this process and every program that it
// started meanwhile have ended, however that came; programs that are ended with us should not write
// there any more by then. While it exists their descriptors include the end of a pipe.
// When destroyed in the ordinary way it removes nothing. Where no process can be made it does
// nothing either.
class Janitor {
 public:
  // Nothing need be there yet.
  explicit Janitor(const std::vector<std::string>& paths);
  ~Janitor();
  Janitor(const Janitor&) = delete;
  Janitor& operator=(const Janitor&) = delete;

 private:
  pid_t process = -1;
  int lifeline = -1;  // open here and in what we start: its end of file is the end of all
};

// For a process that outlives the one it was forked from: nothing that means that one, or its whole
// group, reaches it any more, and nobody who waits for the end of its output waits for it. It is
// called `name` from here on.
void standBy(const char* name);

#endif
