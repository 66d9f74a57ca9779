// The signals that ask this program to stop, taken as events so that it can clean up first.
#ifndef PLATFORM_FFMPEG_PROCESS_STOP_SIGNALS_H
#define PLATFORM_FFMPEG_PROCESS_STOP_SIGNALS_H

#include <signal.h>

// While one exists, SIGTERM, SIGINT, SIGHUP and SIGCHLD are blocked and arrive at fd(). One at a
// time; programs started meanwhile must call restoreDefaults() before exec.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Readable when a signal came.
  int fd() const { return signalFd; }
  // Takes in what came. SIGCHLD only wakes.
  void read();
  // The signal that asked us to stop, or 0.
  int received() const { return stopSignal; }

  // For a child between fork and exec.
  static void restoreDefaults();

 private:
  int signalFd = -1;
  int stopSignal = 0;
  sigset_t previous;
};

#endif
