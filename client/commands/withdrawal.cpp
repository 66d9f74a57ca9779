#include "client/commands/withdrawal.h"

bool Withdrawal::goesOn() {
  const auto now = std::chrono::steady_clock::now();
  if (interrupts->received() == 0) return true;
  if (!letGo) {
    output->letGo();
    letGo = true;
    lastMoment = now + patience;
  }
  return now < lastMoment;
}
