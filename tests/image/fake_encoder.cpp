#include "tests/image/fake_encoder.h"

#include <algorithm>

FakeEncoder gFakeEncoder;

namespace {

struct Encoder {
  GstElement parent;
  GstPad* src;
  int width;
  int height;
  int quality;
};

struct EncoderClass {
  GstElementClass parent;
};

enum { PROP_QUALITY = 1 };

// The least that reads as one whole picture, filled up with scan data.
GstBuffer* makePicture(const Encoder& encoder, int sizeBytes) {
  const auto high = [](int value) { return static_cast<guint8>(value >> 8); };
  const auto low = [](int value) { return static_cast<guint8>(value); };
  // clang-format off
  const std::vector<guint8> start = {
      0xff, 0xd8,                                            // start of image
      0xff, 0xc0, 0, 11, 8, high(encoder.height), low(encoder.height),
      high(encoder.width), low(encoder.width), 1, 1, 0x11, 0,  // frame header
      0xff, 0xda, 0, 8, 1, 1, 0, 0, 63, 0};                    // scan header
  // clang-format on
  std::vector<guint8> bytes(static_cast<size_t>(sizeBytes), 0);
  std::copy(start.begin(), start.end(), bytes.begin());
  bytes[bytes.size() - 2] = 0xff;
  bytes[bytes.size() - 1] = 0xd9;
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, bytes.size(), nullptr);
  gst_buffer_fill(buffer, 0, bytes.data(), bytes.size());
  return buffer;
}

GstFlowReturn chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  auto* encoder = reinterpret_cast<Encoder*>(parent);
  gst_buffer_unref(buffer);
  const EncodeAttempt attempt = {encoder->width, encoder->height, encoder->quality};
  gFakeEncoder.attempts.push_back(attempt);
  if (gFakeEncoder.onEncode) gFakeEncoder.onEncode(GST_BIN(GST_OBJECT_PARENT(encoder)));
  const int sizeBytes = gFakeEncoder.sizeBytes(attempt);
  if (sizeBytes == 0) {
    GST_ELEMENT_ERROR(encoder, STREAM, ENCODE, ("told to fail"), (nullptr));
    return GST_FLOW_ERROR;
  }
  return gst_pad_push(encoder->src, makePicture(*encoder, sizeBytes));
}

gboolean takeEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
  auto* encoder = reinterpret_cast<Encoder*>(parent);
  if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return gst_pad_event_default(pad, parent, event);
  GstCaps* caps = nullptr;
  gst_event_parse_caps(event, &caps);
  const GstStructure* raw = gst_caps_get_structure(caps, 0);
  gst_structure_get_int(raw, "width", &encoder->width);
  gst_structure_get_int(raw, "height", &encoder->height);
  gst_event_unref(event);
  GstCaps* jpeg = gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, encoder->width, "height",
                                      G_TYPE_INT, encoder->height, nullptr);
  const gboolean taken = gst_pad_push_event(encoder->src, gst_event_new_caps(jpeg));
  gst_caps_unref(jpeg);
  return taken;
}

void noteQualitySetting(GstElement* encoder, int quality) {
  EncodeAttempt setting = {0, 0, quality};
  GstObject* bin = gst_object_get_parent(GST_OBJECT(encoder));
  GstElement* filter = gst_bin_get_by_name(GST_BIN(bin), "dimens");
  GstCaps* caps = nullptr;
  g_object_get(filter, "caps", &caps, nullptr);
  gst_structure_get_int(gst_caps_get_structure(caps, 0), "width", &setting.width);
  gst_structure_get_int(gst_caps_get_structure(caps, 0), "height", &setting.height);
  gst_caps_unref(caps);
  gst_object_unref(filter);
  gst_object_unref(bin);
  gFakeEncoder.qualitySettings.push_back(setting);
}

void setProperty(GObject* object, guint, const GValue* value, GParamSpec*) {
  const int quality = g_value_get_int(value);
  reinterpret_cast<Encoder*>(object)->quality = quality;
  noteQualitySetting(GST_ELEMENT(object), quality);
}

void getProperty(GObject* object, guint, GValue* value, GParamSpec*) {
  g_value_set_int(value, reinterpret_cast<Encoder*>(object)->quality);
}

void initClass(gpointer klass, gpointer withQuality) {
  auto* element = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(element, "Fake encoder", "Codec/Encoder/Image",
                                        "Makes pictures of any byte size", "tests");
  GstCaps* raw = gst_caps_from_string("video/x-raw, format=(string)I420");
  GstCaps* jpeg = gst_caps_from_string("image/jpeg");
  gst_element_class_add_pad_template(
      element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, raw));
  gst_element_class_add_pad_template(
      element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, jpeg));
  gst_caps_unref(raw);
  gst_caps_unref(jpeg);
  if (withQuality == nullptr) return;
  auto* object = G_OBJECT_CLASS(klass);
  object->set_property = setProperty;
  object->get_property = getProperty;
  g_object_class_install_property(object, PROP_QUALITY,
                                  g_param_spec_int("quality", "Quality", "Quality of the picture",
                                                   0, 100, 85, G_PARAM_READWRITE));
}

void initElement(GTypeInstance* instance, gpointer klass) {
  auto* encoder = reinterpret_cast<Encoder*>(instance);
  auto* element = GST_ELEMENT(instance);
  encoder->quality =
      g_object_class_find_property(G_OBJECT_CLASS(klass), "quality") != nullptr ? 85 : -1;
  GstPad* sink = gst_pad_new_from_template(
      gst_element_class_get_pad_template(GST_ELEMENT_CLASS(klass), "sink"), "sink");
  gst_pad_set_chain_function(sink, chain);
  gst_pad_set_event_function(sink, takeEvent);
  gst_element_add_pad(element, sink);
  encoder->src = gst_pad_new_from_template(
      gst_element_class_get_pad_template(GST_ELEMENT_CLASS(klass), "src"), "src");
  gst_element_add_pad(element, encoder->src);
}

GType typeOf(bool withQuality) {
  const char* const name = withQuality ? "FakeEncoder" : "FakeEncoderWithoutQuality";
  const GType known = g_type_from_name(name);
  if (known != G_TYPE_INVALID) return known;
  const GTypeInfo info = {
      sizeof(EncoderClass),         nullptr,         nullptr, initClass,   nullptr,
      GINT_TO_POINTER(withQuality), sizeof(Encoder), 0,       initElement, nullptr};
  return g_type_register_static(GST_TYPE_ELEMENT, name, &info, static_cast<GTypeFlags>(0));
}

// Returns what was registered, with a reference; null when nothing was.
GstPluginFeature* takeEncoderAway() {
  GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), "jpegenc");
  if (feature != nullptr) gst_registry_remove_feature(gst_registry_get(), feature);
  return feature;
}

}  // namespace

FakeEncoderFactory::FakeEncoderFactory(bool withQuality) : real(takeEncoderAway()) {
  gst_element_register(nullptr, "jpegenc", GST_RANK_PRIMARY, typeOf(withQuality));
}

FakeEncoderFactory::~FakeEncoderFactory() {
  if (GstPluginFeature* fake = takeEncoderAway(); fake != nullptr) gst_object_unref(fake);
  if (real == nullptr) return;
  gst_registry_add_feature(gst_registry_get(), real);
  gst_object_unref(real);
}
