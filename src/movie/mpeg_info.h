// MpegInfo is one request for what a movie file is: its size, bit rate and playing time.
//
// Thread: the main loop's; run() blocks it.
#ifndef SRC_MOVIE_MPEG_INFO_H
#define SRC_MOVIE_MPEG_INFO_H

#include <cstdint>
#include <string>

#include "src/framework/task_base.h"

class MpegInfo : public TaskBase {
 public:
  explicit MpegInfo(VSCtx* context) : TaskBase(context) {}

  // Replies with fileSize, bitrate and the clip length in seconds; sends nothing when quiet.
  void replySuccess() override;

  // Reads "inFile". The path itself is not checked here.
  bool parseVSParameters(dsjson::JValue& params) override;

  bool init() override { return true; }

 protected:
  using TaskBase::parseVSParameters;

  std::string inFile;

 public:
  // What run() found out. After a failure some may be set and others not.
  int32_t bitrate = 0;     // of the whole file, bits per second
  int32_t clipLength = 0;  // ms
  int32_t fileSize = 0;    // bytes
  float frameRate = 0;     // frames per second of the video stream
  float tbr = 0;           // the rate that the stream's time stamps suggest

  // Set by a caller who wants the figures and not the reply.
  bool quiet = false;
};

// A new task that reads the movie with whatever this system has for it. The task takes over ctx;
// the caller deletes the task.
MpegInfo* createMpegInfo(VSCtx* ctx);

#endif
