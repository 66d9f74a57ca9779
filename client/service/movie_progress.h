// How far the transcode of a movie has come, as the transcoder tells it in a file.
//
// The file is $XDG_RUNTIME_DIR/tarn-transcode/SHA256.progress, the digest being that of the
// output's path as it was sent. It is not there before, between and after the passes.
#ifndef CLIENT_SERVICE_MOVIE_PROGRESS_H
#define CLIENT_SERVICE_MOVIE_PROGRESS_H

#include <optional>
#include <string>

class MovieProgress {
 public:
  explicit MovieProgress(const std::string& outputPath);

  // The share of the whole work that is done, over all passes, 0 to 1; nothing when it is unknown.
  std::optional<double> doneShare() const;

 private:
  std::string path;
};

#endif
