// What is asked of one movie.
#ifndef FIT_MOVIE_MOVIE_REQUEST_H
#define FIT_MOVIE_MOVIE_REQUEST_H

#include <cstdint>

enum class MovieFormat {
  H264,   // "mp4-h264": H.264 and AAC in MP4, which plays while it comes
  Mpeg4,  // "mp4": MPEG-4 and AAC in MP4
  H263,   // "3gp": H.263 and AMR-NB in 3GP, for the oldest phones
};

struct MovieRequest {
  int64_t maxBytes = 0;
  int maxWidth = 0;  // of the upright picture; 0 is no limit
  int maxHeight = 0;
  MovieFormat format = MovieFormat::H264;
};

#endif
