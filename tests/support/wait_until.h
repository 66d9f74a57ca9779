// Waiting for what happens elsewhere: in another thread, in another process, on the main context.
#ifndef TESTS_SUPPORT_WAIT_UNTIL_H
#define TESTS_SUPPORT_WAIT_UNTIL_H

#include <chrono>
#include <functional>

// Looks again and again until the condition holds, running the default main context meanwhile.
// Returns false when that takes longer than `deadline`.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::seconds deadline = std::chrono::seconds(30));

#endif
