// TranscodeServer holds the method handlers of com.tarn.transcode and the count of live tasks.
//
// Thread: handlers run on the main loop's thread; taskCount is changed atomically from any.
#ifndef SRC_SERVICE_TRANSCODE_SERVER_H
#define SRC_SERVICE_TRANSCODE_SERVER_H

#include <glib.h>

#include "vela/vela.h"

class TranscodeServer {
 public:
  explicit TranscodeServer(GMainLoop* loop) : mainLoop(loop) {}
  virtual ~TranscodeServer() = default;
  TranscodeServer(const TranscodeServer&) = delete;
  TranscodeServer& operator=(const TranscodeServer&) = delete;

  // The handlers answer through the request alone and always return true.
  static bool scaleImage(VSHandle* handle, VSMessage* message, void* data);
  static bool resizeImage(VSHandle* handle, VSMessage* message, void* data);
  static bool resizeMovie(VSHandle* handle, VSMessage* message, void* data);
  static bool getMovieInfo(VSHandle* handle, VSMessage* message, void* data);
  static bool getMinimalBitrate(VSHandle* handle, VSMessage* message, void* data);

  // The number of live tasks: while there is one, the daemon keeps running. Only the constructor
  // and destructor of a task change it.
  static int taskCount;

 private:
  GMainLoop* mainLoop;  // borrowed
};

#endif
