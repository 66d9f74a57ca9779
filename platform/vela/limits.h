// What one service may be asked to hold. Beyond a bound the caller gets LimitsExceeded, the service
// lives on.
#ifndef PLATFORM_VELA_LIMITS_H
#define PLATFORM_VELA_LIMITS_H

#include <cstddef>

namespace vela {

// Two paths of 4,096 bytes, every character escaped, are 48 KiB.
constexpr size_t kMaxRequestBytes = size_t{64} << 10;
constexpr size_t kMaxReplyBytes = size_t{16} << 20;
constexpr size_t kMaxWaitingRequests = 4096;
constexpr size_t kMaxWaitingBytes = size_t{32} << 20;
// Each nested image job holds a decoded picture, and thousands of levels overflow the stack.
constexpr size_t kMaxHandlersDeep = 8;

}  // namespace vela

#endif
