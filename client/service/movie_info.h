// What the service says of a movie file.
#ifndef CLIENT_SERVICE_MOVIE_INFO_H
#define CLIENT_SERVICE_MOVIE_INFO_H

#include <optional>
#include <string>

#include "client/service/service_call.h"

struct MovieInfo {
  int32_t sizeBytes = 0;
  double seconds = 0;

  // "0:06, 287 kB, 383 kbit/s"
  std::string words() const;
};

// Asks the service about a file, given by its absolute path.
Answer askMovieInfo(const std::string& path);

// The information in a reply, or nothing when it is a failure.
std::optional<MovieInfo> parseMovieInfo(const Answer& answer);

#endif
