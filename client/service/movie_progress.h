// How far the transcode of a movie has come, as the transcoder tells it in a file.
//
// The file is $XDG_RUNTIME_DIR/tarn-transcode/SHA256.progress, the digest being that of the
// output's path as it was sent. It is not there before, between and after the passes.
#ifndef CLIENT_SERVICE_MOVIE_PROGRESS_H
#define CLIENT_SERVICE_MOVIE_PROGRESS_H

#include <optional>
#include <string>

#include "client/service/step.h"

class MovieProgress {
 public:
  explicit MovieProgress(const std::string& outputPath);

  // Nothing when it is unknown.
  std::optional<Step> step() const;

 private:
  std::string path;
};

#endif
