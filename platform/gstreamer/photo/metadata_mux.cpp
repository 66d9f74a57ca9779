// The element "metadatamux".
//
// Takes one whole JPEG picture per buffer, writes the metadata that came in a TAG event behind its
// SOI, and ends the stream: a file of two pictures must not become one file of two.
//
// Thread: the writing belongs to the streaming thread; it is reset when no such thread runs.
#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/gst_ref.h"
#include "platform/gstreamer/photo/elements.h"
#include "platform/gstreamer/photo/metadata_tag.h"
#include "platform/gstreamer/photo/orphan_watch.h"
#include "platform/jpeg/jpeg_metadata.h"

namespace {

// What is known of the current stream.
struct Writing {
  std::vector<JpegSegment> metadata;
  bool done = false;  // the picture was passed on, and the end behind it
};

}  // namespace

struct _MetadataMux {
  GstElement parent;
  GstPad* sink;
  GstPad* src;
  gboolean exif;
  unsigned toldGone;  // of the metadata
  Writing* writing;   // owned
};

#define METADATA_TYPE_MUX (metadata_mux_get_type())
G_DECLARE_FINAL_TYPE(MetadataMux, metadata_mux, METADATA, MUX, GstElement)
TARN_DEFINE_TYPE(MetadataMux, metadata_mux, GST_TYPE_ELEMENT)

namespace {

enum { PropExif = 1 };

void reset(MetadataMux* self) {
  *self->writing = Writing();
}

// Once for each part, however often the picture is encoded.
void tellGone(MetadataMux* self, unsigned gone) {
  const unsigned untold = gone & ~self->toldGone;
  if (untold == 0) return;
  self->toldGone |= untold;
  g_message("metadata larger than the picture, left out:%s%s%s",
            untold & ShedThumbnail ? " thumbnail" : "",
            untold & ShedExtendedXmp ? " extended XMP" : "",
            untold & ShedMakerNote ? " maker note" : "");
}

bool makeHead(MetadataMux* self, GstBuffer* encoded, JpegHead* head) {
  auto& metadata = self->writing->metadata;
  if (!self->exif) {
    metadata.erase(std::remove_if(metadata.begin(), metadata.end(), isExif), metadata.end());
  }
  tellGone(self, shedJpegMetadata(gst_buffer_get_size(encoded), &metadata));
  GstMapInfo map;
  if (!gst_buffer_map(encoded, &map, GST_MAP_READ)) return false;
  const bool made = makeJpegHead(map.data, map.size, metadata, head);
  gst_buffer_unmap(encoded, &map);
  return made;
}

// The head and what of the encoded picture follows it; the latter is shared, not copied.
GstRef<GstBuffer> join(GstBuffer* encoded, JpegHead head) {
  auto* bytes = new std::vector<uint8_t>(std::move(head.bytes));
  GstRef<GstBuffer> joined(gst_buffer_new_wrapped_full(
      GST_MEMORY_FLAG_READONLY, bytes->data(), bytes->size(), 0, bytes->size(), bytes,
      [](gpointer data) { delete static_cast<std::vector<uint8_t>*>(data); }));
  gst_buffer_copy_into(joined.get(), encoded, GST_BUFFER_COPY_METADATA, 0, G_MAXSIZE);
  gst_buffer_copy_into(joined.get(), encoded, GST_BUFFER_COPY_MEMORY, head.restOffset, G_MAXSIZE);
  return joined;
}

GstFlowReturn takePicture(MetadataMux* self, GstBuffer* encoded) {
  if (self->writing->done) return GST_FLOW_EOS;
  JpegHead head;
  if (!makeHead(self, encoded, &head)) {
    GST_ELEMENT_ERROR(self, STREAM, MUX, ("The encoder gave no whole JPEG picture."), (nullptr));
    return GST_FLOW_ERROR;
  }
  if (head.leftOut != 0) {
    GST_ELEMENT_WARNING(self, STREAM, MUX, ("Some of the picture's metadata is left out."),
                        ("%zu segments of more than %zu bytes", head.leftOut, kMaxSegmentPayload));
  }
  self->writing->done = true;
  const GstFlowReturn flow = gst_pad_push(self->src, join(encoded, std::move(head)).release());
  if (flow != GST_FLOW_OK) return flow;
  gst_pad_push_event(self->src, gst_event_new_eos());
  return GST_FLOW_EOS;
}

GstFlowReturn chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  auto* self = METADATA_MUX(parent);
  const GstRef<GstBuffer> owned(buffer);
  try {
    return takePicture(self, owned.get());
  } catch (const std::bad_alloc&) {
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory."), (nullptr));
    return GST_FLOW_ERROR;
  }
}

// Whether the event was meant for this element alone. The tag goes no further: the metadata is in
// the data from here on.
bool takeEvent(MetadataMux* self, GstEvent* event) {
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_STREAM_START:
    case GST_EVENT_FLUSH_STOP:
      reset(self);
      return false;
    case GST_EVENT_TAG: {
      GstTagList* tags = nullptr;  // the event's
      gst_event_parse_tag(event, &tags);
      return readMetadataTags(tags, &self->writing->metadata);
    }
    case GST_EVENT_EOS:
      return self->writing->done;  // it was sent behind the picture
    default:
      return false;
  }
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
  auto* self = METADATA_MUX(parent);
  bool taken = false;
  try {
    taken = takeEvent(self, event);
  } catch (const std::bad_alloc&) {
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory."), (nullptr));
  }
  if (!taken) return gst_pad_event_default(pad, parent, event);
  gst_event_unref(event);
  return TRUE;
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  if (transition == GST_STATE_CHANGE_NULL_TO_READY) removeOrphanWatch(element);
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(metadata_mux_parent_class)->change_state(element, transition);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) reset(METADATA_MUX(element));
  return result;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
  if (id == PropExif) {
    METADATA_MUX(object)->exif = g_value_get_boolean(value);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* property) {
  if (id == PropExif) {
    g_value_set_boolean(value, METADATA_MUX(object)->exif);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void finalize(GObject* object) {
  delete METADATA_MUX(object)->writing;
  G_OBJECT_CLASS(metadata_mux_parent_class)->finalize(object);
}

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg"));
GstStaticPadTemplate gSrcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg"));

}  // namespace

static void metadata_mux_class_init(MetadataMuxClass* type) {
  auto* object = G_OBJECT_CLASS(type);
  object->set_property = setProperty;
  object->get_property = getProperty;
  object->finalize = finalize;
  g_object_class_install_property(
      object, PropExif,
      g_param_spec_boolean("exif", "Exif", "Write the Exif segment", TRUE,
                           static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
  auto* element = GST_ELEMENT_CLASS(type);
  element->change_state = changeState;
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "Picture metadata writer", "Muxer/Metadata",
                                        "Writes metadata into one encoded JPEG picture",
                                        "The developers of the transcoding service");
}

static void metadata_mux_init(MetadataMux* self) {
  self->exif = TRUE;
  self->writing = new Writing;
  self->sink = gst_pad_new_from_static_template(&gSinkTemplate, "sink");
  gst_pad_set_chain_function(self->sink, chain);
  gst_pad_set_event_function(self->sink, sinkEvent);
  gst_element_add_pad(GST_ELEMENT(self), self->sink);
  self->src = gst_pad_new_from_static_template(&gSrcTemplate, "src");
  gst_element_add_pad(GST_ELEMENT(self), self->src);
}

bool registerMetadataMux(GstPlugin* plugin) {
  return gst_element_register(plugin, "metadatamux", GST_RANK_NONE, METADATA_TYPE_MUX);
}
