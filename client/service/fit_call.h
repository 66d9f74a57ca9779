// Has com.tarn.Fit1 make one photo or movie fit, and waits for its end.
//
// Thread: one; the call runs the default main context while it waits.
#ifndef CLIENT_SERVICE_FIT_CALL_H
#define CLIENT_SERVICE_FIT_CALL_H

#include <cstdint>
#include <functional>
#include <string>

#include "client/service/interrupts.h"
#include "client/service/step.h"

struct FitWish {
  int input = -1;  // descriptors, borrowed
  int output = -1;
  bool isPhoto = false;  // for sure; else the service is asked
  uint64_t maxBytes = 0;
  uint32_t maxWidth = 0;  // 0: no limit
  uint32_t maxHeight = 0;
  std::string keepMetadata;  // of a photo; empty: all
  std::string photoFormat;   // empty: as the service has it
  std::string movieFormat;   // also
};

struct FitAnswer {
  enum Kind {
    Made,
    TooSmall,  // so few bytes hold no such photo or movie
    Refused,
    Cancelled,
    Died,
    NoService,
  };
  Kind kind = Died;
  std::string errorText;  // of all but Made
  // Of Made:
  uint64_t bytes = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  double similarity = 0;
  double seconds = 0;        // of a movie
  bool isUntouched = false;  // the picture is the source's own
};

// `onProgress` hears the share that is done. A signal that `interrupts` notes cancels the job at
// once. A service that dies is asked once more, after `onRetry`.
FitAnswer fitFile(const FitWish& wish, const std::function<void(const Step&)>& onProgress,
                  const std::function<void()>& onRetry, Interrupts* interrupts);

#endif
