// The element "tarnmpeg4mux": writes one video and one audio stream into an MPEG-4 file.
//
// It is a sink: mp4mux and filesink in one. While it is not enabled it takes streams but neither
// data nor the end of a stream: those get an ERROR message, so that a movie that lacks one of its
// streams ends instead of waiting for it for ever.
//
// Thread: "enable" may be set from any thread, a streaming thread included.
#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/movie/elements.h"
#include "platform/gstreamer/movie/late_rise.h"

namespace {

// The values of "StreamMuxSelection".
enum Selection { SelectBoth, SelectVideo, SelectAudio, SelectLast = SelectAudio };

}  // namespace

struct _TarnMpeg4Mux {
  GstBin parent;
  GstElement* muxer;  // both belong to the bin; null where they are not installed
  GstElement* file;
  GstPad* sinkVideo;  // these belong to the element
  GstPad* sinkAudio;
  gint enabled;  // both atomic
  gint selection;
};

#define TARN_TYPE_MPEG4_MUX (tarn_mpeg4_mux_get_type())
G_DECLARE_FINAL_TYPE(TarnMpeg4Mux, tarn_mpeg4_mux, TARN, MPEG4_MUX, GstBin)
TARN_DEFINE_TYPE(TarnMpeg4Mux, tarn_mpeg4_mux, GST_TYPE_BIN)

namespace {

enum { PropEnable = 1, PropLocation, PropSelection };

bool isSelected(TarnMpeg4Mux* self, GstPad* pad) {
  const int selection = g_atomic_int_get(&self->selection);
  return selection == SelectBoth || (selection == SelectVideo) == (pad == self->sinkVideo);
}

GstPadProbeReturn refuse(TarnMpeg4Mux* self, GstPadProbeInfo* info) {
  GST_ELEMENT_ERROR(self, STREAM, MUX, ("The movie lacks its video or its audio."),
                    ("a stream came to the muxer before it was enabled"));
  gst_mini_object_unref(GST_MINI_OBJECT(GST_PAD_PROBE_INFO_DATA(info)));
  GST_PAD_PROBE_INFO_FLOW_RETURN(info) = GST_FLOW_ERROR;
  return GST_PAD_PROBE_HANDLED;
}

GstPadProbeReturn onSinkData(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
  auto* self = TARN_MPEG4_MUX(data);
  const bool isEvent = (info->type & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) != 0;
  const bool isEnd = isEvent && GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_EOS;
  if (!g_atomic_int_get(&self->enabled) && (isEnd || !isEvent)) return refuse(self, info);
  return isSelected(self, pad) ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

// mp4mux waits for data on every pad that it has, so it gets those of the selection only.
void attach(TarnMpeg4Mux* self, GstPad* ghost, const char* pattern) {
  if (!isSelected(self, ghost)) return;
  GstPad* target = gst_element_request_pad_simple(self->muxer, pattern);
  gst_ghost_pad_set_target(GST_GHOST_PAD(ghost), target);
  gst_object_unref(target);
}

void detach(TarnMpeg4Mux* self, GstPad* ghost) {
  GstPad* target = gst_ghost_pad_get_target(GST_GHOST_PAD(ghost));
  if (target == nullptr) return;
  gst_ghost_pad_set_target(GST_GHOST_PAD(ghost), nullptr);
  gst_element_release_request_pad(self->muxer, target);
  gst_object_unref(target);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  auto* self = TARN_MPEG4_MUX(element);
  const bool isComplete = self->muxer != nullptr && self->file != nullptr;
  if (!isComplete && transition == GST_STATE_CHANGE_NULL_TO_READY) {
    GST_ELEMENT_ERROR(self, CORE, MISSING_PLUGIN,
                      ("The elements \"mp4mux\" and \"filesink\" are not installed."), (nullptr));
    return GST_STATE_CHANGE_FAILURE;
  }
  if (risesLate(element, transition)) return GST_STATE_CHANGE_FAILURE;
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
    attach(self, self->sinkVideo, "video_%u");
    attach(self, self->sinkAudio, "audio_%u");
  }
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(tarn_mpeg4_mux_parent_class)->change_state(element, transition);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY || result == GST_STATE_CHANGE_FAILURE) {
    detach(self, self->sinkVideo);
    detach(self, self->sinkAudio);
  }
  return result;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
  auto* self = TARN_MPEG4_MUX(object);
  switch (id) {
    case PropEnable:
      g_atomic_int_set(&self->enabled, g_value_get_boolean(value));
      break;
    case PropLocation:
      if (self->file != nullptr) g_object_set_property(G_OBJECT(self->file), "location", value);
      break;
    case PropSelection:
      g_atomic_int_set(&self->selection, g_value_get_int(value));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* property) {
  auto* self = TARN_MPEG4_MUX(object);
  switch (id) {
    case PropEnable:
      g_value_set_boolean(value, g_atomic_int_get(&self->enabled));
      break;
    case PropLocation:
      if (self->file != nullptr) g_object_get_property(G_OBJECT(self->file), "location", value);
      break;
    case PropSelection:
      g_value_set_int(value, g_atomic_int_get(&self->selection));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

GstStaticPadTemplate gVideoTemplate =
    GST_STATIC_PAD_TEMPLATE("sinkVideo", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("video/x-h264, stream-format={avc,avc3}, alignment=au; "
                                            "video/mpeg, mpegversion=4, systemstream=false"));
GstStaticPadTemplate gAudioTemplate =
    GST_STATIC_PAD_TEMPLATE("sinkAudio", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/mpeg, mpegversion=4, stream-format=raw"));

void installProperties(GObjectClass* object) {
  const int always = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING;
  const int atRest = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY;
  g_object_class_install_property(
      object, PropEnable,
      g_param_spec_boolean("enable", "Enable",
                           "Write; data that comes before this is set is an error", TRUE,
                           static_cast<GParamFlags>(always)));
  g_object_class_install_property(
      object, PropLocation,
      g_param_spec_string("location", "File location", "Path of the file to write", nullptr,
                          static_cast<GParamFlags>(atRest)));
  g_object_class_install_property(
      object, PropSelection,
      g_param_spec_int("StreamMuxSelection", "Stream selection",
                       "The streams to write: 0 both, 1 video only, 2 audio only", SelectBoth,
                       SelectLast, SelectBoth, static_cast<GParamFlags>(atRest)));
}

GstPad* addSink(TarnMpeg4Mux* self, GstStaticPadTemplate* description) {
  GstPadTemplate* pattern = gst_static_pad_template_get(description);
  GstPad* ghost = gst_ghost_pad_new_no_target_from_template(description->name_template, pattern);
  gst_object_unref(pattern);
  gst_pad_add_probe(
      ghost,
      static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST |
                                   GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
      onSinkData, self, nullptr);
  gst_element_add_pad(GST_ELEMENT(self), ghost);
  return ghost;
}

}  // namespace

static void tarn_mpeg4_mux_class_init(TarnMpeg4MuxClass* type) {
  auto* object = G_OBJECT_CLASS(type);
  object->set_property = setProperty;
  object->get_property = getProperty;
  installProperties(object);
  auto* element = GST_ELEMENT_CLASS(type);
  element->change_state = changeState;
  gst_element_class_add_static_pad_template(element, &gVideoTemplate);
  gst_element_class_add_static_pad_template(element, &gAudioTemplate);
  gst_element_class_set_static_metadata(element, "MPEG-4 file muxer", "Codec/Muxer/Sink/File",
                                        "Writes one video and one audio stream into an MPEG-4 file",
                                        "The developers of the transcoding service");
}

static void tarn_mpeg4_mux_init(TarnMpeg4Mux* self) {
  self->enabled = TRUE;
  self->selection = SelectBoth;
  self->muxer = gst_element_factory_make("mp4mux", "muxer");
  self->file = gst_element_factory_make("filesink", "file");
  if (self->muxer != nullptr) gst_bin_add(GST_BIN(self), self->muxer);
  if (self->file != nullptr) {
    // Its state must not wait for data: there is none before the element is enabled.
    g_object_set(self->file, "async", FALSE, nullptr);
    gst_bin_add(GST_BIN(self), self->file);
  }
  if (self->muxer != nullptr && self->file != nullptr) gst_element_link(self->muxer, self->file);
  self->sinkVideo = addSink(self, &gVideoTemplate);
  self->sinkAudio = addSink(self, &gAudioTemplate);
}

bool registerMpeg4Mux(GstPlugin* plugin) {
  return gst_element_register(plugin, "tarnmpeg4mux", GST_RANK_NONE, TARN_TYPE_MPEG4_MUX);
}
