#include "src/pipelines/mpeg_transcode_native_orrin.h"

#include <cstring>
#include <string>

#include "platform/gstreamer/gst_seam.h"

namespace {

constexpr char kSetupPipeline[] = "virtual int MpegTranscodeNativeOrrin::setupPipeline()";
constexpr char kTeardown[] = "virtual bool MpegTranscodeNativeOrrin::teardown(int)";

constexpr int kTeardownSeconds = 5;

// What a handler of "autoplug-select" may answer.
enum AutoplugSelect { AutoplugTry = 0, AutoplugExpose = 1, AutoplugSkip = 2 };

void addToPipeline(GstElement* pipeline, GstElement* element) {
  gst_bin_add(GST_BIN(pipeline), element);
}

bool linkPads(GstElement* from, GstElement* to, const char* toPad) {
  return gst_element_link_pads(from, "src", to, toPad);
}

// The media type that the pad carries, "" when it has none.
std::string mediaType(const GstCaps* caps) {
  if (caps == nullptr || gst_caps_get_size(caps) == 0) return "";
  return gst_structure_get_name(gst_caps_get_structure(caps, 0));
}

// Whether the link succeeded is left to the data: a pad that leads nowhere ends in a bus error.
void linkToSink(GstPad* pad, GstElement* encoder) {
  GstPad* sink = gst_element_get_static_pad(encoder, "sink");
  gst_pad_link(pad, sink);
  gst_object_unref(sink);
}

template <typename Object>
void release(Object** object) {
  if (*object == nullptr) return;
  gst_object_unref(*object);
  *object = nullptr;
}

}  // namespace

int MpegTranscodeNativeOrrin::setupPipeline() {
  if (pipeline != nullptr) return -1;
  g_message("+ %s\n", kSetupPipeline);
  if (build()) return 0;
  g_message("- %s returning %d\n", kSetupPipeline, -1);
  teardown(kTeardownSeconds);
  return -1;
}

bool MpegTranscodeNativeOrrin::build() {
  pipeline = gst_pipeline_new(nullptr);
  return pipeline != nullptr && buildSource() && buildEncoders() && linkEncoders();
}

bool MpegTranscodeNativeOrrin::buildSource() {
  fileSource = gst_element_factory_make("filesrc", nullptr);
  if (fileSource == nullptr) return false;
  g_object_set(fileSource, "location", inFile.c_str(), nullptr);
  gst_object_ref(fileSource);
  addToPipeline(pipeline, fileSource);

  GstElement* decoder = gst_element_factory_make("decodebin2", nullptr);
  if (decoder == nullptr) return false;
  decodeBin = GST_BIN(decoder);
  newDecodedPadHandlerId =
      g_signal_connect(decoder, "new-decoded-pad", G_CALLBACK(newDecodedPadBindingCallback), this);
  autoplugContinueHandlerId = g_signal_connect(decoder, "autoplug-continue",
                                               G_CALLBACK(autoplugContinueBindingCallback), this);
  autoplugSelectHandlerId =
      g_signal_connect(decoder, "autoplug-select", G_CALLBACK(autoplugSelectBindingCallback), this);
  gst_object_ref(decoder);
  addToPipeline(pipeline, decoder);
  return gst_element_link(fileSource, decoder);
}

bool MpegTranscodeNativeOrrin::buildEncoders() {
  videoEncoderElement = gst_element_factory_make("tarnvideoencoder", "videoenc");
  if (videoEncoderElement == nullptr) return false;
  g_object_set(videoEncoderElement, "enable", FALSE, nullptr);

  audioEncoderElement = gst_element_factory_make("tarnaudioencoder", "audioenc");
  if (audioEncoderElement == nullptr) return false;
  g_object_set(audioEncoderElement, "enable", FALSE, nullptr);

  muxerElement = gst_element_factory_make("tarnmpeg4mux", nullptr);
  if (muxerElement == nullptr) return false;
  g_object_set(muxerElement, "enable", FALSE, nullptr);
  g_object_set(muxerElement, "location", outFile.c_str(), nullptr);
  g_object_set(muxerElement, "StreamMuxSelection", 0, nullptr);
  return true;
}

bool MpegTranscodeNativeOrrin::linkEncoders() {
  gst_object_ref(videoEncoderElement);
  gst_object_ref(audioEncoderElement);
  gst_object_ref(muxerElement);
  addToPipeline(pipeline, videoEncoderElement);
  addToPipeline(pipeline, audioEncoderElement);
  addToPipeline(pipeline, muxerElement);
  return linkPads(audioEncoderElement, muxerElement, "sinkAudio") &&
         linkPads(videoEncoderElement, muxerElement, "sinkVideo");
}

gboolean MpegTranscodeNativeOrrin::autoplugContinueBindingCallback(GstElement*, GstPad*, GstCaps*,
                                                                   void*) {
  return TRUE;
}

int MpegTranscodeNativeOrrin::autoplugSelectBindingCallback(GstElement*, GstPad*, GstCaps* caps,
                                                            GstElementFactory* factory, void*) {
  if (factory == nullptr) {
    g_warning("autoplugSelectBinding: Factory NULL!");
    return AutoplugTry;
  }
  const char* longName = gst_element_factory_get_longname(factory);
  // The text of the caps stays with the process.
  g_debug("Autoplug Factory %s caps %s\n", longName, gst_caps_to_string(caps));
  if (strcmp(longName, "tarnamrdemux") == 0 || strcmp(longName, "tarnmp3demux") == 0) {
    return AutoplugSkip;
  }
  return AutoplugTry;
}

void MpegTranscodeNativeOrrin::newDecodedPadBindingCallback(GstElement*, GstPad* pad, int last,
                                                            void* self) {
  static_cast<MpegTranscodeNativeOrrin*>(self)->newDecodedPadBinding(pad, last);
}

void MpegTranscodeNativeOrrin::newDecodedPadBinding(GstPad* pad, int) {
  GstCaps* caps = gstSeamPadCaps(pad);
  const std::string type = mediaType(caps);
  if (type.find("audio") != std::string::npos && !audioLinked) {
    linkToSink(pad, audioEncoderElement);
    audioLinked = true;
    g_message("Audiosink linked to decodebin");
  } else if (type.find("video") != std::string::npos && !videoLinked) {
    linkToSink(pad, videoEncoderElement);
    videoLinked = true;
    g_message("VideoSink linked to decodebin");
  }
  if (videoLinked && audioLinked) enableEncoders();
  if (caps != nullptr) gst_caps_unref(caps);
}

void MpegTranscodeNativeOrrin::enableEncoders() {
  gst_element_set_state(videoEncoderElement, GST_STATE_PLAYING);
  gst_element_set_state(audioEncoderElement, GST_STATE_PLAYING);
  gst_element_set_state(muxerElement, GST_STATE_PLAYING);
  g_object_set(muxerElement, "enable", TRUE, nullptr);
  g_object_set(videoEncoderElement, "enable", TRUE, nullptr);
  g_object_set(audioEncoderElement, "enable", TRUE, nullptr);
}

bool MpegTranscodeNativeOrrin::teardown(int seconds) {
  g_message("%s\n", kTeardown);
  MpegTranscodeNativeGst::teardown(seconds);
  release(&fileSource);
  if (decodeBin != nullptr) {
    for (const unsigned long id :
         {newDecodedPadHandlerId, autoplugContinueHandlerId, autoplugSelectHandlerId}) {
      if (g_signal_handler_is_connected(decodeBin, id)) g_signal_handler_disconnect(decodeBin, id);
    }
    release(&decodeBin);
  }
  release(&spareElementA);
  release(&spareElementB);
  release(&videoEncoderElement);
  release(&audioEncoderElement);
  release(&muxerElement);
  return true;
}
