// MpegTranscodeNativeGst runs a movie request as a GStreamer pipeline in this process.
//
// Thread: run() blocks its caller's thread, which must be the default main context's; other
// sources of that context are dispatched meanwhile.
// Errors: an error on the bus ends the run just as the end of the stream does.
// Owns: the pipeline. No reply is sent here: whoever makes the task sends it.
#ifndef SRC_PIPELINES_MPEG_TRANSCODE_NATIVE_GST_H
#define SRC_PIPELINES_MPEG_TRANSCODE_NATIVE_GST_H

#include <gst/gst.h>

#include "src/movie/mpeg_transcode_native.h"

class MpegTranscodeNativeGst : public MpegTranscodeNative {
 public:
  explicit MpegTranscodeNativeGst(VSCtx* context) : MpegTranscodeNative(context) {}
  // Releases the pipeline, but not what a subclass holds beside it: that goes when run() ends.
  ~MpegTranscodeNativeGst() override;

  // Builds the pipeline, plays it until the bus reports an end or an error and releases it.
  // Returns LaunchFailed only when the pipeline could not be built.
  LaunchResult run() override;

  // Creates and fills `pipeline`. Returns 0; on failure another value, with nothing left behind.
  virtual int setupPipeline() = 0;

  // Brings the pipeline to NULL, waiting at most `seconds` for it, and releases it with its watch.
  // Returns true also when there is no pipeline, or when the wait failed; false, with nothing
  // released, when the state change itself failed. Subclasses call this version first.
  virtual bool teardown(int seconds);

 protected:
  // The bus watch; `loop` is the running GMainLoop.
  static gboolean bus_call(GstBus* bus, GstMessage* message, void* loop);

  GstElement* pipeline = nullptr;  // owned
  guint busWatchId = G_MAXUINT;    // all bits set: none
};

#endif
