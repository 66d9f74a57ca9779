// The element "tarnvideoencoder": encodes raw pictures for an MPEG-4 file.
#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/movie/elements.h"
#include "platform/gstreamer/movie/encoder_bin.h"

struct TarnVideoEncoder {
  TarnEncoderBin parent;
};
struct TarnVideoEncoderClass {
  TarnEncoderBinClass parent;
};

static GType tarn_video_encoder_get_type();
TARN_DEFINE_TYPE(TarnVideoEncoder, tarn_video_encoder, TARN_TYPE_ENCODER_BIN)

namespace {

// Sides are made even, as 4:2:0 has it, without black borders.
#define EVEN_420                                                   \
  "videoconvertscale add-borders=false ! video/x-raw,format=I420," \
  "width=(int)[16,16384,2],height=(int)[16,16384,2],pixel-aspect-ratio=(fraction)[1/100,100/1] ! "
const char* const kChoices[] = {
    EVEN_420 "x264enc pass=qual quantizer=21 speed-preset=veryfast ! h264parse",
    EVEN_420 "openh264enc rate-control=quality complexity=low ! h264parse", nullptr};
#undef EVEN_420

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));
GstStaticPadTemplate gSrcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264"));

}  // namespace

static void tarn_video_encoder_class_init(TarnVideoEncoderClass* type) {
  TARN_ENCODER_BIN_CLASS(type)->choices = kChoices;
  auto* element = GST_ELEMENT_CLASS(type);
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "Movie video encoder", "Codec/Encoder/Video",
                                        "Encodes raw pictures for an MPEG-4 file",
                                        "The developers of the transcoding service");
}

static void tarn_video_encoder_init(TarnVideoEncoder*) {}

bool registerVideoEncoder(GstPlugin* plugin) {
  return gst_element_register(plugin, "tarnvideoencoder", GST_RANK_NONE,
                              tarn_video_encoder_get_type());
}
