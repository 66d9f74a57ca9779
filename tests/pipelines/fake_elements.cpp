#include "tests/pipelines/fake_elements.h"

#include "platform/gstreamer/define_type.h"

#include <map>

namespace fake {
std::vector<std::string> record;
std::string missingPad;
bool refuseStates = false;
GstClockTime waitedNs = GST_CLOCK_TIME_NONE;
std::function<void()> whenStateSet;
}  // namespace fake

struct FakeElement {
  GstElement parent;
};
struct FakeElementClass {
  GstElementClass parent;
};
struct FakePipeline {
  GstPipeline parent;
  GstStateChangeReturn setResult;
  GstStateChangeReturn waitResult;
};
struct FakePipelineClass {
  GstPipelineClass parent;
};

static GType fake_element_get_type();
static GType fake_pipeline_get_type();
TARN_DEFINE_TYPE(FakeElement, fake_element, GST_TYPE_ELEMENT)
TARN_DEFINE_TYPE(FakePipeline, fake_pipeline, GST_TYPE_PIPELINE)

namespace {

enum { PropEnable = 1, PropLocation, PropSelection };

std::string shownName(GstElement* element) {
  const std::string name = GST_OBJECT_NAME(element);
  if (name == "videoenc" || name == "audioenc") return name;
  GstElementFactory* factory = gst_element_get_factory(element);
  return factory ? GST_OBJECT_NAME(factory) : name;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
  std::string text;
  if (id == PropEnable) text = g_value_get_boolean(value) ? "1" : "0";
  if (id == PropLocation) text = g_value_get_string(value);
  if (id == PropSelection) text = std::to_string(g_value_get_int(value));
  fake::record.push_back(shownName(GST_ELEMENT(object)) + " " + property->name + "=" + text);
}

GstStateChangeReturn setState(GstElement* element, GstState state) {
  fake::record.push_back(shownName(element) + " -> " + gst_element_state_get_name(state));
  return GST_ELEMENT_CLASS(fake_element_parent_class)->set_state(element, state);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  if (fake::refuseStates) return GST_STATE_CHANGE_FAILURE;
  return GST_ELEMENT_CLASS(fake_element_parent_class)->change_state(element, transition);
}

GstPadLinkReturn onLink(GstPad* pad, GstObject*, GstPad*) {
  fake::record.push_back(std::string(GST_PAD_NAME(pad)) + " linked");
  return GST_PAD_LINK_OK;
}

void addPad(GstElement* element, const char* name, GstPadDirection direction) {
  if (fake::missingPad == name) return;
  GstPad* pad = gst_pad_new(name, direction);
  if (direction == GST_PAD_SINK) gst_pad_set_link_function(pad, onLink);
  gst_element_add_pad(element, pad);
}

// The pads depend on the factory, which is not known to the instance before it is complete.
void addPads(GstElement* element, const std::string& factory) {
  if (factory == "tarnmpeg4mux") {
    addPad(element, "sinkAudio", GST_PAD_SINK);
    addPad(element, "sinkVideo", GST_PAD_SINK);
    return;
  }
  addPad(element, factory == "decodebin2" ? "decodeSink" : "sink", GST_PAD_SINK);
  if (factory != "decodebin2") addPad(element, "src", GST_PAD_SRC);
}

GstStateChangeReturn pipelineSetState(GstElement* element, GstState) {
  if (fake::whenStateSet) fake::whenStateSet();
  return G_TYPE_CHECK_INSTANCE_CAST(element, fake_pipeline_get_type(), FakePipeline)->setResult;
}

GstStateChangeReturn pipelineGetState(GstElement* element, GstState*, GstState*,
                                      GstClockTime timeoutNs) {
  fake::waitedNs = timeoutNs;
  return G_TYPE_CHECK_INSTANCE_CAST(element, fake_pipeline_get_type(), FakePipeline)->waitResult;
}

int selectByDefault(GstElement*, GstPad*, GstCaps*, GstElementFactory*) {
  return 0;
}

// One type for each factory: GStreamer keeps the factory with the class.
GType derivedType(const char* name) {
  static const GTypeInfo info = {
      sizeof(FakeElementClass), nullptr, nullptr, nullptr, nullptr, nullptr,
      sizeof(FakeElement),      0,       nullptr, nullptr};
  return g_type_register_static(fake_element_get_type(), name, &info, static_cast<GTypeFlags>(0));
}

void addSignals(GType type) {
  g_signal_new("new-decoded-pad", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
               G_TYPE_NONE, 2, GST_TYPE_PAD, G_TYPE_BOOLEAN);
  g_signal_new("autoplug-continue", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
               G_TYPE_BOOLEAN, 2, GST_TYPE_PAD, GST_TYPE_CAPS);
  g_signal_new_class_handler("autoplug-select", type, G_SIGNAL_RUN_LAST,
                             G_CALLBACK(selectByDefault), nullptr, nullptr, nullptr, G_TYPE_INT, 3,
                             GST_TYPE_PAD, GST_TYPE_CAPS, GST_TYPE_ELEMENT_FACTORY);
}

void constructed(GObject* object) {
  static const std::map<std::string, std::string> factories = {
      {"FakeDecodeBin2", "decodebin2"},
      {"FakeVideoEncoder", "tarnvideoencoder"},
      {"FakeAudioEncoder", "tarnaudioencoder"},
      {"FakeMpeg4Mux", "tarnmpeg4mux"}};
  addPads(GST_ELEMENT(object), factories.at(G_OBJECT_TYPE_NAME(object)));
  G_OBJECT_CLASS(fake_element_parent_class)->constructed(object);
}

// What a pad offers while nothing is agreed on is its template's.
GstPad* newPad(const char* text) {
  GstCaps* caps = gst_caps_from_string(text);
  GstPad* pad = nullptr;
  if (gst_caps_get_size(caps) < 2) {
    pad = gst_pad_new("decoded", GST_PAD_SRC);
  } else {
    GstPadTemplate* offer = gst_pad_template_new("decoded", GST_PAD_SRC, GST_PAD_ALWAYS, caps);
    pad = gst_pad_new_from_template(offer, "decoded");
    gst_object_unref(offer);
  }
  gst_caps_unref(caps);
  return pad;
}

}  // namespace

static void fake_element_class_init(FakeElementClass* type) {
  auto* object = G_OBJECT_CLASS(type);
  object->set_property = setProperty;
  object->constructed = constructed;
  const auto flags = static_cast<GParamFlags>(G_PARAM_WRITABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(object, PropEnable,
                                  g_param_spec_boolean("enable", "", "", FALSE, flags));
  g_object_class_install_property(object, PropLocation,
                                  g_param_spec_string("location", "", "", nullptr, flags));
  g_object_class_install_property(object, PropSelection,
                                  g_param_spec_int("StreamMuxSelection", "", "", 0, 9, 0, flags));
  auto* element = GST_ELEMENT_CLASS(type);
  element->set_state = setState;
  element->change_state = changeState;
  gst_element_class_set_static_metadata(element, "Fake", "Testing", "Records", "Tests");
}
static void fake_element_init(FakeElement*) {}

static void fake_pipeline_class_init(FakePipelineClass* type) {
  GST_ELEMENT_CLASS(type)->set_state = pipelineSetState;
  GST_ELEMENT_CLASS(type)->get_state = pipelineGetState;
}
static void fake_pipeline_init(FakePipeline*) {}

namespace fake {

void registerElements() {
  static bool done = false;
  if (done) return;
  done = true;
  const GType decodeBin = derivedType("FakeDecodeBin2");
  addSignals(decodeBin);
  gst_element_register(nullptr, "decodebin2", GST_RANK_NONE, decodeBin);
  gst_element_register(nullptr, "tarnvideoencoder", GST_RANK_NONE, derivedType("FakeVideoEncoder"));
  gst_element_register(nullptr, "tarnaudioencoder", GST_RANK_NONE, derivedType("FakeAudioEncoder"));
  gst_element_register(nullptr, "tarnmpeg4mux", GST_RANK_NONE, derivedType("FakeMpeg4Mux"));
}

WithoutFactory::WithoutFactory(const std::string& name)
    : feature(
          gst_registry_find_feature(gst_registry_get(), name.c_str(), GST_TYPE_ELEMENT_FACTORY)) {
  gst_registry_remove_feature(gst_registry_get(), feature);
}

WithoutFactory::~WithoutFactory() {
  gst_registry_add_feature(gst_registry_get(), feature);
  gst_object_unref(feature);
}

DecodedPad::DecodedPad(const char* text) : pad(newPad(text)) {
  gst_object_ref_sink(pad);
  gst_pad_set_active(pad, TRUE);
  GstCaps* caps = gst_caps_from_string(text);
  if (gst_caps_is_fixed(caps)) {
    gst_pad_push_event(pad, gst_event_new_stream_start("test"));
    gst_pad_push_event(pad, gst_event_new_caps(caps));
  }
  gst_caps_unref(caps);
}

DecodedPad::~DecodedPad() {
  gst_pad_set_active(pad, FALSE);
  gst_object_unref(pad);
}

std::string DecodedPad::peer() const {
  GstPad* peer = gst_pad_get_peer(pad);
  if (peer == nullptr) return "";
  GstElement* element = gst_pad_get_parent_element(peer);
  const std::string result = shownName(element) + ":" + GST_PAD_NAME(peer);
  gst_object_unref(element);
  gst_object_unref(peer);
  return result;
}

GstElement* newScriptedPipeline(GstStateChangeReturn setResult, GstStateChangeReturn waitResult) {
  auto* pipeline = static_cast<FakePipeline*>(g_object_new(fake_pipeline_get_type(), nullptr));
  pipeline->setResult = setResult;
  pipeline->waitResult = waitResult;
  return GST_ELEMENT(gst_object_ref_sink(pipeline));
}

}  // namespace fake
