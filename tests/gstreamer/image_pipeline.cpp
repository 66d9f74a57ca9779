#include "tests/gstreamer/image_pipeline.h"

#include "platform/gstreamer/gst_seam.h"

static constexpr GstClockTime kDeadline = 30 * GST_SECOND;

static GstElement* named(GstElement* pipeline, const char* name) {
  GstElement* element = gst_bin_get_by_name(GST_BIN(pipeline), name);
  gst_object_unref(element);  // the bin keeps it
  return element;
}

ImagePipeline::ImagePipeline(const std::string& inFile, const std::string& outFile,
                             const Options& options) {
  const char* exif = options.exif ? "TRUE" : "FALSE";
  const std::string demux = options.metadata ? "metadatademux parse-only=TRUE ! " : "";
  const std::string mux =
      options.metadata ? std::string("metadatamux exif=") + exif + " ! " : std::string();
  const std::string crop =
      options.crop > 0 ? "videocrop right=" + std::to_string(options.crop) + " ! " : "";
  const std::string description = "filesrc name=src blocksize=1048576 ! " + demux +
                                  "jpegdec ! videoscale ! capsfilter name=dimens ! " + crop +
                                  "jpegenc name=encoder ! " + mux + "filesink name=sink";
  GError* failure = nullptr;
  pipeline = gst_parse_launch(description.c_str(), &failure);
  if (failure != nullptr) g_error("%s", failure->message);
  g_object_set(named(pipeline, "src"), "location", inFile.c_str(), nullptr);
  g_object_set(named(pipeline, "sink"), "location", outFile.c_str(), nullptr);
}

ImagePipeline::~ImagePipeline() {
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
  g_clear_error(&error);
}

ImagePipeline::Outcome ImagePipeline::encode(int width, int height, int quality) {
  g_clear_error(&error);
  GstCaps* caps = gst_caps_new_simple(GST_SEAM_RAW_VIDEO, "width", G_TYPE_INT, width, "height",
                                      G_TYPE_INT, height, nullptr);
  g_object_set(named(pipeline, "dimens"), "caps", caps, nullptr);
  gst_caps_unref(caps);
  g_object_set(named(pipeline, "encoder"), "quality", quality, nullptr);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  const Outcome outcome = waitForEnd();
  gst_element_set_state(pipeline, GST_STATE_NULL);
  return outcome;
}

ImagePipeline::Outcome ImagePipeline::waitForEnd() {
  GstBus* bus = gst_element_get_bus(pipeline);
  const auto ends = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  GstMessage* message = gst_bus_timed_pop_filtered(bus, kDeadline, ends);
  gst_object_unref(bus);
  if (message == nullptr) return Outcome::TimedOut;
  const bool failed = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
  if (failed) gst_message_parse_error(message, &error, nullptr);
  gst_message_unref(message);
  return failed ? Outcome::Error : Outcome::End;
}

bool ImagePipeline::failedWith(GQuark domain, int code) const {
  return g_error_matches(error, domain, code);
}
