#include "src/pipelines/mpeg_transcode_native_gst.h"

#include <cstdint>

#include "platform/gstreamer/gst_seam.h"
#include "src/framework/bus_watch.h"

namespace {

constexpr char kBusCall[] =
    "static gboolean MpegTranscodeNativeGst::bus_call(GstBus*, GstMessage*, void*)";
constexpr char kTeardown[] = "virtual bool MpegTranscodeNativeGst::teardown(int)";

constexpr guint kNoWatch = G_MAXUINT;
constexpr int kTeardownSeconds = 5;

// Brings the pipeline to NULL. Returns false only when GStreamer refuses outright.
bool stop(GstElement* pipeline, int seconds) {
  switch (gst_element_set_state(pipeline, GST_STATE_NULL)) {
    case GST_STATE_CHANGE_SUCCESS:
      g_debug("MediaPipeline::teardown: setting the state to NULL succeeded");
      return true;
    case GST_STATE_CHANGE_ASYNC: {
      g_debug("MediaPipeline::teardown: waiting for the state change to NULL to finish");
      const int64_t timeoutNs = int64_t{seconds} * 1000000000;
      const GstStateChangeReturn waited =
          gst_element_get_state(pipeline, nullptr, nullptr, static_cast<GstClockTime>(timeoutNs));
      // ASYNC is what the wait reports when its time is over.
      if (waited == GST_STATE_CHANGE_FAILURE || waited == GST_STATE_CHANGE_ASYNC) {
        g_warning("MediaPipeline::teardown: failed to set the state to NULL");
      }
      return true;
    }
    case GST_STATE_CHANGE_FAILURE:
      g_warning("MediaPipeline::teardown: failed to set the state to NULL");
      return false;
    default:
      g_warning("MediaPipeline::teardown: unexpected result from gst_element_set_state");
      return true;
  }
}

}  // namespace

MpegTranscodeNativeGst::~MpegTranscodeNativeGst() {
  MpegTranscodeNativeGst::teardown(kTeardownSeconds);
}

LaunchResult MpegTranscodeNativeGst::run() {
  if (setupPipeline() != 0) return LaunchFailed;

  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline));
  busWatchId = gst_bus_add_watch(bus, bus_call, loop);
  gst_object_unref(bus);

  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  g_main_loop_run(loop);
  teardown(kTeardownSeconds);
  return LaunchDone;  // the loop is left to the process
}

gboolean MpegTranscodeNativeGst::bus_call(GstBus*, GstMessage* message, void* loop) {
  return watchBusMessage(kBusCall, message, static_cast<GMainLoop*>(loop));
}

bool MpegTranscodeNativeGst::teardown(int seconds) {
  g_message("%s\n", kTeardown);
  if (pipeline == nullptr) return true;
  if (!stop(pipeline, seconds)) return false;

  GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline));
  if (busWatchId != kNoWatch && !g_source_remove(busWatchId)) {
    g_warning("MediaPipeline::teardown: Unable to remove the bus watch source of id %d",
              static_cast<int>(busWatchId));
  }
  busWatchId = kNoWatch;
  gstSeamClearSyncHandler(bus);
  gst_object_unref(bus);
  gst_object_unref(pipeline);
  pipeline = nullptr;
  return true;
}
