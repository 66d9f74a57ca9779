// What a caller asks of one photo or movie, checked.
#ifndef FIT_SERVICE_FIT_OPTIONS_H
#define FIT_SERVICE_FIT_OPTIONS_H

#include <gio/gio.h>

#include <cstdint>
#include <string>

#include "fit/wire/request_words.h"

// Why a request is refused: the name of a bus error, behind com.tarn.Fit1.Error., and words.
struct Refusal {
  std::string name;
  std::string message;
};

struct FitOptions {
  WorkerRequest request;
  std::string token;  // of the job's path; empty: any
  bool waits = false;

  int64_t maxBytes() const {
    return request.kind == MediaKind::Movie ? request.movie.maxBytes : request.photo.maxBytes;
  }
};

// The formats that can be made, with a NULL behind them.
extern const char* const kFormats[];
extern const char* const kMovieFormats[];

// Takes an a{sv}, for a request of the kind that *parsed has. False where the limit or an option
// makes no sense.
bool parseFitOptions(uint64_t maxBytes, GVariant* options, FitOptions* parsed, Refusal* refusal);

#endif
