// Why a photo or a movie was not made to fit.
#ifndef FIT_FAILURE_FIT_FAILURE_H
#define FIT_FAILURE_FIT_FAILURE_H

#include <cstdint>
#include <string>

struct FitFailure {
  std::string name;  // of the bus error, behind com.tarn.Fit1.Error.
  std::string message;
  int64_t smallestBytes = 0;  // where nothing was small enough: the least that would do
};

#endif
