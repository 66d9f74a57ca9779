// The element "tarnaudioencoder": encodes raw sound for an MPEG-4 file.
#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/movie/elements.h"
#include "platform/gstreamer/movie/encoder_bin.h"

struct TarnAudioEncoder {
  TarnEncoderBin parent;
};
struct TarnAudioEncoderClass {
  TarnEncoderBinClass parent;
};

static GType tarn_audio_encoder_get_type();
TARN_DEFINE_TYPE(TarnAudioEncoder, tarn_audio_encoder, TARN_TYPE_ENCODER_BIN)

namespace {

// Two channels are what a handheld plays; more are mixed down to them. An encoder puts a block of
// 1024 samples in front of the sound: at a low rate that would be an audible delay.
#define UP_TO_STEREO                \
  "audioconvert ! audioresample ! " \
  "audio/x-raw,channels=(int)[1,2],rate=(int)[32000,48000] ! "
const char* const kChoices[] = {UP_TO_STEREO "avenc_aac bitrate=128000 ! aacparse",
                                UP_TO_STEREO "fdkaacenc ! aacparse",
                                UP_TO_STEREO "voaacenc bitrate=128000 ! aacparse", nullptr};
#undef UP_TO_STEREO

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("audio/x-raw"));
GstStaticPadTemplate gSrcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/mpeg, mpegversion=4, stream-format=raw"));

}  // namespace

static void tarn_audio_encoder_class_init(TarnAudioEncoderClass* type) {
  TARN_ENCODER_BIN_CLASS(type)->choices = kChoices;
  auto* element = GST_ELEMENT_CLASS(type);
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "Movie audio encoder", "Codec/Encoder/Audio",
                                        "Encodes raw sound for an MPEG-4 file",
                                        "The developers of the transcoding service");
}

static void tarn_audio_encoder_init(TarnAudioEncoder*) {}

bool registerAudioEncoder(GstPlugin* plugin) {
  return gst_element_register(plugin, "tarnaudioencoder", GST_RANK_NONE,
                              tarn_audio_encoder_get_type());
}
