// 32-bit arithmetic with one outcome on every CPU.
#ifndef SRC_FRAMEWORK_INT32_H
#define SRC_FRAMEWORK_INT32_H

#include <cstdint>

// Drops the fraction of a floating-point number. What then does not fit, infinities and NaN
// included, becomes INT32_MIN.
template <typename Float>
int32_t truncateToInt32(const Float& number) {
  const bool fits = number > Float(-2147483649.0) && number < Float(2147483648.0);
  return fits ? static_cast<int32_t>(number) : INT32_MIN;
}

// The sum and the product, wrapped around.
inline int32_t wrappedSum(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t wrappedProduct(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

#endif
