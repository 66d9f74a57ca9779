#include "src/image/jpeg_transcode_gstreamer.h"

#include <sys/stat.h>

#include "platform/gstreamer/gst_seam.h"
#include "src/framework/bus_watch.h"
#include "src/framework/int32.h"

namespace {

constexpr char kRun[] = "virtual LaunchResult JpegTranscodeGstreamer::run()";
constexpr char kBusCall[] =
    "static gboolean JpegTranscodeGstreamer::bus_call(GstBus*, GstMessage*, void*)";

constexpr int kLevels = 4;  // each halves the picture's sides
constexpr int kFallbackQuality = 85;
constexpr int kLowestReducedQuality = 50;

int defaultQuality(GstElement* encoder) {
  GParamSpec* property = g_object_class_find_property(G_OBJECT_GET_CLASS(encoder), "quality");
  if (property == nullptr || !G_IS_PARAM_SPEC_INT(property)) return kFallbackQuality;
  const int quality = G_PARAM_SPEC_INT(property)->default_value;
  g_message("encoder default quality is %d\n", quality);
  return quality;
}

// The quality that should bring size down to targetSize, taking the two as proportional.
int reducedQuality(int quality, int targetSize, int size) {
  if (size == 0) return 0;
  return static_cast<int>(int64_t{wrappedProduct(quality, targetSize)} / size);
}

}  // namespace

// The elements belong to the bin once they are in it.
struct JpegTranscodeGstreamer::Pipeline {
  GstElement* bin;
  GstElement* src;
  GstElement* decoder;
  GstElement* scaler;
  GstElement* cropper;
  GstElement* encoder;
  GstElement* sink;
  GstElement* metamux;
  GstElement* metademux;
  GstElement* dimens;
  GMainLoop* loop;
};

LaunchResult JpegTranscodeGstreamer::run() {
  // The pipeline opens the files by their paths.
  inputStream.reset();
  outputStream.reset();

  g_message("+ %s\n", kRun);
  Pipeline pipeline;
  create(&pipeline);
  assemble(pipeline);
  link(pipeline);

  pipeline.loop = g_main_loop_new(nullptr, FALSE);
  g_message("loop %p \n", static_cast<void*>(pipeline.loop));
  GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline.bin));
  g_message("bus %p \n", static_cast<void*>(bus));
  gst_bus_add_watch(bus, bus_call, pipeline.loop);
  gst_object_unref(bus);

  LaunchResult result = LaunchDone;
  if (command == JpegScale) {
    gst_element_set_state(pipeline.bin, GST_STATE_PLAYING);
    g_main_loop_run(pipeline.loop);
    replySuccess();
  } else {
    result = searchQuality(pipeline);
  }

  g_message("g_main_loop exitted\n");
  gst_element_set_state(pipeline.bin, GST_STATE_NULL);
  gst_object_unref(pipeline.bin);
  g_main_loop_unref(pipeline.loop);
  g_message("- %s returning %d\n", kRun, result);
  return result;
}

void JpegTranscodeGstreamer::create(Pipeline* pipeline) {
  Pipeline& p = *pipeline;
  p.bin = gst_pipeline_new(nullptr);
  if (p.bin == nullptr) g_error("Unable to create pipeline\n");
  g_message("made pipeline element %p\n", static_cast<void*>(p.bin));

  p.src = gst_element_factory_make("filesrc", "src");
  gst_util_set_object_arg(G_OBJECT(p.src), "blocksize", "1048576");
  g_message("made src element %p\n", static_cast<void*>(p.src));
  p.decoder = gst_element_factory_make("jpegdec", "decoder");
  g_message("made decoder element %p\n", static_cast<void*>(p.decoder));
  p.scaler = gst_element_factory_make("videoscale", "scaler");
  g_message("made scaler element %p\n", static_cast<void*>(p.scaler));
  p.cropper = gst_element_factory_make("videocrop", "cropper");
  g_message("made cropper element %p\n", static_cast<void*>(p.cropper));
  p.encoder = gst_element_factory_make("jpegenc", "encoder");
  g_message("made encoder element %p\n", static_cast<void*>(p.encoder));
  p.sink = gst_element_factory_make("filesink", "sink");
  g_message("made sink element %p\n", static_cast<void*>(p.sink));
  p.metamux = gst_element_factory_make("metadatamux", "metamux");
  g_message("made metadatamux element %p\n", static_cast<void*>(p.metamux));
  p.metademux = gst_element_factory_make("metadatademux", "metademux");
  g_message("made metadatademux element %p\n", static_cast<void*>(p.metademux));
  p.dimens = gst_element_factory_make("capsfilter", "dimens");
  g_message("made caps element %p setting width %d height %d\n", static_cast<void*>(p.dimens),
            outWidth, outHeight);
  setDimensions(p);
  g_message("caps set on caps element %p\n", static_cast<void*>(p.dimens));

  if (p.src == nullptr || p.scaler == nullptr || p.cropper == nullptr || p.encoder == nullptr ||
      p.sink == nullptr || p.dimens == nullptr || p.metademux == nullptr || p.metamux == nullptr) {
    g_error("Unable to instantiate one or more pipeline element %p %p %p %p %p %p %p\n",
            static_cast<void*>(p.src), static_cast<void*>(p.decoder), static_cast<void*>(p.scaler),
            static_cast<void*>(p.cropper), static_cast<void*>(p.encoder),
            static_cast<void*>(p.sink), static_cast<void*>(p.dimens));
  }
}

void JpegTranscodeGstreamer::setQuality(const Pipeline& pipeline, int quality) {
  g_object_set(pipeline.encoder, "quality", quality, nullptr);
}

void JpegTranscodeGstreamer::setDimensions(const Pipeline& pipeline) {
  GstCaps* caps = gst_caps_new_simple(GST_SEAM_RAW_VIDEO, "width", G_TYPE_INT, outWidth, "height",
                                      G_TYPE_INT, outHeight, nullptr);
  g_object_set(pipeline.dimens, "caps", caps, nullptr);
  gst_caps_unref(caps);
}

void JpegTranscodeGstreamer::assemble(const Pipeline& p) {
  gst_bin_add_many(GST_BIN(p.bin), p.src, p.metademux, p.decoder, p.scaler, p.dimens, p.cropper,
                   p.encoder, p.metamux, p.sink, nullptr);
  g_message("made pipeline element\n");
  g_object_set(p.src, "location", inFile.c_str(), nullptr);
  g_object_set(p.sink, "location", outFile.c_str(), nullptr);
  g_object_set(p.metamux, "exif", TRUE, nullptr);
  g_object_set(p.metademux, "parse-only", TRUE, nullptr);
}

void JpegTranscodeGstreamer::link(const Pipeline& p) {
  switch (command) {
    case JpegResize:
      if (!gst_bin_remove(GST_BIN(p.bin), p.cropper)) {
        g_error("cannot remove cropper from pipeline\n");
      }
      if (!gst_element_link_many(p.src, p.metademux, p.decoder, p.scaler, p.dimens, p.encoder,
                                 p.metamux, p.sink, nullptr)) {
        g_error("Unable to link jpeg scale  pipeline\n");
      }
      break;
    case JpegScale:
      // The margins are pixels of the source although the picture is scaled by then.
      g_object_set(p.cropper, "left", xTop, "right", imageWidth - xSize - xTop, "top", yTop,
                   "bottom", imageHeight - ySize - yTop, nullptr);
      if (!gst_element_link_many(p.src, p.metademux, p.decoder, p.scaler, p.dimens, p.cropper,
                                 p.encoder, p.metamux, p.sink, nullptr)) {
        g_error("Unable to link jpeg crop pipeline\n");
      }
      break;
    default:
      g_error("unknown transcode type \n");
  }
  g_message("Linking pipeline completed \n");
}

LaunchResult JpegTranscodeGstreamer::searchQuality(const Pipeline& pipeline) {
  const int quality = defaultQuality(pipeline.encoder);
  const int plannedWidth = outWidth;
  const int plannedHeight = outHeight;
  for (int level = 0; level < kLevels; ++level) {
    const int divisor = 1 << level;
    outWidth = plannedWidth / divisor;
    outHeight = plannedHeight / divisor;
    FixFrameSizeMod16(&outWidth, &outHeight);
    setQuality(pipeline, quality);
    setDimensions(pipeline);

    int size = encode(pipeline, quality);
    if (size > targetSize) {
      const int reduced = reducedQuality(quality, targetSize, size);
      if (reduced >= kLowestReducedQuality) {
        setQuality(pipeline, reduced);
        size = encode(pipeline, reduced);
      }
    }
    if (size <= targetSize) {
      replySuccess();
      return LaunchDone;
    }
  }
  ctx->replyFail();
  return LaunchFailed;
}

int JpegTranscodeGstreamer::encode(const Pipeline& pipeline, int quality) {
  g_message("trying res %dx%d, quality %d", outWidth, outHeight, quality);
  gst_element_set_state(pipeline.bin, GST_STATE_PLAYING);
  g_main_loop_run(pipeline.loop);
  gst_element_set_state(pipeline.bin, GST_STATE_NULL);

  struct stat attributes = {};
  stat(outFile.c_str(), &attributes);
  const int size = static_cast<int>(attributes.st_size);
  g_message("output size is %d, target %d", size, targetSize);
  return size;
}

gboolean JpegTranscodeGstreamer::bus_call(GstBus*, GstMessage* message, void* data) {
  return watchBusMessage(kBusCall, message, static_cast<GMainLoop*>(data));
}
