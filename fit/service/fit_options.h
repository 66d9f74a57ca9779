// What a caller asks of one photo, checked.
#ifndef FIT_SERVICE_FIT_OPTIONS_H
#define FIT_SERVICE_FIT_OPTIONS_H

#include <gio/gio.h>

#include <cstdint>
#include <string>

#include "fit/photo/fit_photo.h"

// Why a request is refused: the name of a bus error, behind com.tarn.Fit1.Error., and words.
struct Refusal {
  std::string name;
  std::string message;
};

struct FitOptions {
  PhotoRequest photo;
  std::string token;  // of the job's path; empty: any
  bool waits = false;
};

// The formats that can be made, with a NULL behind them.
extern const char* const kFormats[];

// Takes an a{sv}. False where the limit or an option makes no sense.
bool parseFitOptions(uint64_t maxBytes, GVariant* options, FitOptions* parsed, Refusal* refusal);

#endif
