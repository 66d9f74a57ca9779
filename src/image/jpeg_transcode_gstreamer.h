// JpegTranscodeGstreamer runs an image request through a GStreamer pipeline.
//
// Thread: the main loop's. While a picture is encoded a nested loop on the default context goes on
// dispatching bus requests and timer ticks.
// Errors: a pipeline that cannot be built means a broken installation and ends the process. An
// error while the pipeline runs only ends the attempt, which is then judged by its output's size.
#ifndef SRC_IMAGE_JPEG_TRANSCODE_GSTREAMER_H
#define SRC_IMAGE_JPEG_TRANSCODE_GSTREAMER_H

#include <gst/gst.h>

#include "src/image/jpeg_transcode.h"

class JpegTranscodeGstreamer : public JpegTranscode {
 public:
  using JpegTranscode::JpegTranscode;

  // Encodes and replies: once for a clip; for a resize, until the output fits the byte budget, at
  // most 8 times. The output keeps the last attempt also when none fits.
  LaunchResult run() override;

 private:
  struct Pipeline;

  LaunchResult searchQuality(const Pipeline& pipeline);
  // Encodes once, with the settings made before, and returns the byte size of the output.
  int encode(const Pipeline& pipeline, int quality);
  void setQuality(const Pipeline& pipeline, int quality);
  void setDimensions(const Pipeline& pipeline);
  void create(Pipeline* pipeline);
  void assemble(const Pipeline& pipeline);
  void link(const Pipeline& pipeline);

  static gboolean bus_call(GstBus* bus, GstMessage* message, void* data);
};

#endif
