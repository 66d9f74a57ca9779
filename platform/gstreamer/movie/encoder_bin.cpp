#include "platform/gstreamer/movie/encoder_bin.h"

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/movie/enable_gate.h"
#include "platform/gstreamer/movie/late_rise.h"

TARN_DEFINE_ABSTRACT_TYPE(TarnEncoderBin, tarn_encoder_bin, GST_TYPE_BIN)

namespace {

enum { PropEnable = 1 };

TarnEncoderBin* encoderBin(gpointer object) {
  return G_TYPE_CHECK_INSTANCE_CAST(object, TARN_TYPE_ENCODER_BIN, TarnEncoderBin);
}

// Takes the data out of the stream and gives its sender this result.
GstPadProbeReturn refuse(GstPadProbeInfo* info, GstFlowReturn flow) {
  gst_mini_object_unref(GST_MINI_OBJECT(GST_PAD_PROBE_INFO_DATA(info)));
  GST_PAD_PROBE_INFO_FLOW_RETURN(info) = flow;
  return GST_PAD_PROBE_HANDLED;
}

GstPadProbeReturn passData(TarnEncoderBin* self, GstPadProbeInfo* info) {
  switch (self->gate->pass()) {
    case EnableGate::Passage::Open:
      return GST_PAD_PROBE_OK;
    case EnableGate::Passage::Stopped:
      return refuse(info, GST_FLOW_FLUSHING);
    case EnableGate::Passage::NotEnabled:
      break;
  }
  GST_ELEMENT_ERROR(self, STREAM, FAILED, ("The movie lacks its video or its audio."),
                    ("there is data, but the encoder was never enabled"));
  return refuse(info, GST_FLOW_ERROR);
}

GstPadProbeReturn onSinkData(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* self = encoderBin(data);
  if ((info->type & GST_PAD_PROBE_TYPE_EVENT_FLUSH) == 0) return passData(self, info);
  if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_FLUSH_START) {
    self->gate->stop();
  } else {
    self->gate->restart();
  }
  return GST_PAD_PROBE_OK;
}

// Returns null, and says nothing, when something of the description is not installed.
GstElement* build(const char* description) {
  GError* error = nullptr;
  GstElement* inside = gst_parse_bin_from_description_full(
      description, TRUE, nullptr,
      static_cast<GstParseFlags>(GST_PARSE_FLAG_FATAL_ERRORS |
                                 GST_PARSE_FLAG_NO_SINGLE_ELEMENT_BINS),
      &error);
  g_clear_error(&error);
  return inside;
}

void addPad(TarnEncoderBin* self, GstElement* inside, const char* name) {
  GstPadTemplate* pattern = gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(self), name);
  GstPad* target = inside != nullptr ? gst_element_get_static_pad(inside, name) : nullptr;
  GstPad* ghost = target != nullptr ? gst_ghost_pad_new_from_template(name, target, pattern)
                                    : gst_ghost_pad_new_no_target_from_template(name, pattern);
  if (target != nullptr) gst_object_unref(target);
  gst_element_add_pad(GST_ELEMENT(self), ghost);
}

void watchSink(TarnEncoderBin* self) {
  GstPad* sink = gst_element_get_static_pad(GST_ELEMENT(self), "sink");
  gst_pad_add_probe(
      sink,
      static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST |
                                   GST_PAD_PROBE_TYPE_EVENT_FLUSH),
      onSinkData, self, nullptr);
  gst_object_unref(sink);
}

// The choices and the pad templates are those of the final class, which is set by now.
void constructed(GObject* object) {
  auto* self = encoderBin(object);
  GstElement* inside = nullptr;
  const char* const* choice = TARN_ENCODER_BIN_CLASS(G_OBJECT_GET_CLASS(object))->choices;
  while (inside == nullptr && *choice != nullptr) {
    inside = build(*choice++);
  }
  if (inside != nullptr) gst_bin_add(GST_BIN(self), inside);
  self->usable = inside != nullptr;
  addPad(self, inside, "sink");
  addPad(self, inside, "src");
  watchSink(self);
  G_OBJECT_CLASS(tarn_encoder_bin_parent_class)->constructed(object);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  auto* self = encoderBin(element);
  if (!self->usable && transition == GST_STATE_CHANGE_NULL_TO_READY) {
    GST_ELEMENT_ERROR(self, CORE, MISSING_PLUGIN, ("No suitable encoder is installed."), (nullptr));
    return GST_STATE_CHANGE_FAILURE;
  }
  if (risesLate(element, transition)) return GST_STATE_CHANGE_FAILURE;
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) self->gate->restart();
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) self->gate->stop();
  return GST_ELEMENT_CLASS(tarn_encoder_bin_parent_class)->change_state(element, transition);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
  if (id == PropEnable) {
    encoderBin(object)->gate->enable(g_value_get_boolean(value));
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* property) {
  if (id == PropEnable) {
    g_value_set_boolean(value, encoderBin(object)->gate->isEnabled());
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void finalize(GObject* object) {
  delete encoderBin(object)->gate;
  G_OBJECT_CLASS(tarn_encoder_bin_parent_class)->finalize(object);
}

}  // namespace

static void tarn_encoder_bin_class_init(TarnEncoderBinClass* type) {
  auto* object = G_OBJECT_CLASS(type);
  object->constructed = constructed;
  object->set_property = setProperty;
  object->get_property = getProperty;
  object->finalize = finalize;
  g_object_class_install_property(
      object, PropEnable,
      g_param_spec_boolean("enable", "Enable", "Encode; data waits at the sink until this is set",
                           TRUE,
                           static_cast<GParamFlags>(G_PARAM_READWRITE | GST_PARAM_MUTABLE_PLAYING |
                                                    G_PARAM_STATIC_STRINGS)));
  GST_ELEMENT_CLASS(type)->change_state = changeState;
}

static void tarn_encoder_bin_init(TarnEncoderBin* self) {
  self->gate = new EnableGate;
}
