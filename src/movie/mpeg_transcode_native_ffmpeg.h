// MpegTranscodeNativeFFMpeg runs a movie request as one or two passes of `ffmpeg`.
#ifndef SRC_MOVIE_MPEG_TRANSCODE_NATIVE_FFMPEG_H
#define SRC_MOVIE_MPEG_TRANSCODE_NATIVE_FFMPEG_H

#include <string>
#include <vector>

#include "src/movie/mpeg_transcode_native_cmd.h"

class MpegTranscodeNativeFFMpeg : public MpegTranscodeNativeCmd {
 public:
  using MpegTranscodeNativeCmd::MpegTranscodeNativeCmd;

  // Takes 1 and 2; ignores any other number.
  void setPasses(int count) override;
  int getPasses() override;

  // Also keeps 5 % of the byte budget back, for what ffmpeg overshoots.
  bool prepareParameters() override;

  // Runs ffmpeg in place of this process. Of two passes number 2 comes first and only measures.
  // Returns -1 for a pass that there is not, and when ffmpeg cannot be started.
  int exec(int pass) override;

  // Removes the log files that pass information between two passes.
  void cleanup() override;

 private:
  std::vector<std::string> commandLine(int pass) const;
  void addVideo(std::vector<std::string>* line) const;
  void addAudio(std::vector<std::string>* line) const;
  void addClip(std::vector<std::string>* line) const;
  float outputFrameRate() const;

  int32_t passes = 1;
};

#endif
