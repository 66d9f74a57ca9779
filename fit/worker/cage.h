// What a worker may still do once it looks at a stranger's photo: read its standard input, write
// its standard output and error, and have memory.
#ifndef FIT_WORKER_CAGE_H
#define FIT_WORKER_CAGE_H

#include <cstdint>

struct CageLimits {
  int64_t memoryBytes;   // that this process writes to
  int64_t outputBytes;   // of each file that it writes
  int processorSeconds;  // a signal ends the process behind them
  bool hasThreads;       // whether it may start threads; their stacks count as memory
};

// For good, for a process of one thread with nothing open above descriptor 2. The list is of what
// is allowed: 0 is read by offset, 1 is cut and written by offset, 2 is written. Nothing is opened,
// made, connected, started, signalled or mapped executable from here on, threads apart. False where
// the kernel could bar system calls but did not.
bool enterCage(const CageLimits& limits);

#endif
