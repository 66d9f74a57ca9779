// Gives a request up when the user ends the command: SIGINT, SIGTERM, SIGHUP.
#ifndef CLIENT_COMMANDS_WITHDRAWAL_H
#define CLIENT_COMMANDS_WITHDRAWAL_H

#include <chrono>

#include "client/files/staged_output.h"
#include "client/service/interrupts.h"

// Borrows what it is given.
class Withdrawal {
 public:
  // Whoever makes the output is given that long to leave it.
  Withdrawal(Interrupts* signals, StagedOutput* staged, std::chrono::seconds longest)
      : interrupts(signals), output(staged), patience(longest) {}

  // To be called a few times a second while the request is under way. When the user ends it the
  // output is let go; false when the patience is at its end.
  bool goesOn();
  // The number of the signal by which the user has ended it, or 0.
  int signalNumber() { return interrupts->received(); }

 private:
  Interrupts* interrupts;
  StagedOutput* output;
  std::chrono::seconds patience;
  bool letGo = false;
  std::chrono::steady_clock::time_point lastMoment;
};

#endif
