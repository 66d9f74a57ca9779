// MpegInfoNativeFFMpeg reads a movie by running `ffmpeg` on it and matching its console report.
//
// Thread: the main loop's, blocked until ffmpeg has ended.
#ifndef SRC_MOVIE_MPEG_INFO_NATIVE_FFMPEG_H
#define SRC_MOVIE_MPEG_INFO_NATIVE_FFMPEG_H

#include "src/movie/mpeg_info.h"

class MpegInfoNativeFFMpeg : public MpegInfo {
 public:
  using MpegInfo::MpegInfo;

  // Fills in the figures and replies. On failure sets the error message and sends nothing.
  LaunchResult run() override;

 private:
  bool probe();
  bool readReport(const std::string& report);
  bool readDuration(const std::string& text);
  bool readRates(const std::string& text);
};

#endif
