// Makes one movie fit: the whole clip, in at most so many bytes.
//
// The work is platform/ffmpeg's: its plan, and its cages for what reads and encodes the movie. The
// process itself reads nothing of it. For a process of one thread.
#ifndef FIT_MOVIE_FIT_MOVIE_H
#define FIT_MOVIE_FIT_MOVIE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "fit/failure/fit_failure.h"
#include "fit/movie/movie_request.h"

// What a movie is.
struct MovieFacts {
  int64_t bytes = 0;
  int width = 0;  // upright
  int height = 0;
  int64_t milliseconds = 0;
  std::string format;  // "mp4", "matroska" and so on
  std::string videoCodec;
  std::string audioCodec;  // empty: no sound
};

struct FittedMovie {
  int file = -1;  // open for reading, without a name; the caller closes it
  MovieFacts facts;
  int encodes = 0;                   // 0: the source's own streams
  std::optional<double> similarity;  // to the source, of luma, where it could be told
};

// The movie is standard input, of which nothing is moved. From here on the process can do nothing
// but this. `onProgress` hears the share of the work that is done, never less than before.
bool fitMovie(const MovieRequest& request, const std::function<void(double)>& onProgress,
              FittedMovie* movie, FitFailure* failure);

// The movie is standard input. From here on the process can do nothing but read it.
bool inspectMovie(MovieFacts* facts, FitFailure* failure);

#endif
