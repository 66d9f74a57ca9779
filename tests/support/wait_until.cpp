#include "tests/support/wait_until.h"

#include <glib.h>

bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds deadline) {
  const auto start = std::chrono::steady_clock::now();
  while (!condition()) {
    if (std::chrono::steady_clock::now() - start > deadline) return false;
    if (g_main_context_iteration(nullptr, FALSE) == FALSE) g_usleep(2000);
  }
  return true;
}
