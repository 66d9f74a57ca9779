// The element "metadatademux".
//
// Holds a JPEG picture's data back until its header is read, sends the metadata ahead in one TAG
// event of GLOBAL scope, then passes the data on, unchanged and whole. What is no JPEG picture,
// ends before its first scan or is too large gets an ERROR message, so that a pipeline always ends.
//
// Thread: the reading belongs to the streaming thread; it is reset when no such thread runs.
#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/gst_ref.h"
#include "platform/gstreamer/photo/elements.h"
#include "platform/gstreamer/photo/metadata_tag.h"
#include "platform/jpeg/jpeg_metadata.h"

namespace {

using Status = JpegHeaderReader::Status;

// A file of a few hundred bytes can claim 65,535 x 65,535 pixels, and the decoder takes 1.5 to 4
// bytes for each, as much again for a progressive picture. The largest sensors of telephones give
// 200 million; more is a mistake or an attack.
constexpr uint64_t kMaxPixels = 200'000'000;

// What is known of the current picture.
struct Reading {
  JpegHeaderReader header;
  std::vector<GstRef<GstBuffer>> held;  // until the header is complete
};

}  // namespace

struct _MetadataDemux {
  GstElement parent;
  GstPad* sink;
  GstPad* src;
  gboolean parseOnly;
  Reading* reading;  // owned
};

#define METADATA_TYPE_DEMUX (metadata_demux_get_type())
G_DECLARE_FINAL_TYPE(MetadataDemux, metadata_demux, METADATA, DEMUX, GstElement)
TARN_DEFINE_TYPE(MetadataDemux, metadata_demux, GST_TYPE_ELEMENT)

namespace {

enum { PropParseOnly = 1 };

void reset(MetadataDemux* self) {
  *self->reading = Reading();
}

// Posts an ERROR message unless the header can still be, or is, a picture's.
bool checkStatus(MetadataDemux* self, Status status) {
  switch (status) {
    case Status::NeedsMore:
    case Status::Complete:
      return true;
    case Status::NotJpeg:
      GST_ELEMENT_ERROR(self, STREAM, WRONG_TYPE, ("This is not a JPEG picture."), (nullptr));
      return false;
    case Status::Malformed:
      GST_ELEMENT_ERROR(self, STREAM, DEMUX, ("The header of the JPEG picture is damaged."),
                        (nullptr));
      return false;
    case Status::TooLong:
      GST_ELEMENT_ERROR(self, STREAM, DEMUX, ("The header of the JPEG picture does not end."),
                        ("no scan within %zu bytes", JpegHeaderReader::maxHeaderBytes));
      return false;
  }
  return false;
}

bool checkSize(MetadataDemux* self) {
  const JpegHeaderReader& header = self->reading->header;
  if (uint64_t{header.width()} * header.height() <= kMaxPixels) return true;
  GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("The JPEG picture is too large."),
                    ("%u x %u pixels, at most %" G_GUINT64_FORMAT " can be decoded", header.width(),
                     header.height(), static_cast<guint64>(kMaxPixels)));
  return false;
}

void publishMetadata(MetadataDemux* self) {
  const JpegHeaderReader& header = self->reading->header;
  if (header.leftOut() != 0) {
    GST_ELEMENT_WARNING(
        self, STREAM, DEMUX, ("Some of the picture's metadata is left out."),
        ("%zu segments above the first %zu", header.leftOut(), JpegHeaderReader::maxSegments));
  }
  std::vector<JpegSegment> metadata;
  std::copy_if(header.segments().begin(), header.segments().end(), std::back_inserter(metadata),
               isJpegMetadata);
  if (metadata.empty()) return;
  gst_pad_push_event(self->src, gst_event_new_tag(makeMetadataTags(metadata)));
}

GstFlowReturn passHeld(MetadataDemux* self) {
  GstFlowReturn flow = GST_FLOW_OK;
  std::vector<GstRef<GstBuffer>> held = std::move(self->reading->held);
  for (GstRef<GstBuffer>& buffer : held) {
    if (flow == GST_FLOW_OK) flow = gst_pad_push(self->src, buffer.release());
  }
  return flow;
}

GstFlowReturn takeData(MetadataDemux* self, GstRef<GstBuffer> buffer) {
  JpegHeaderReader& header = self->reading->header;
  if (header.status() == Status::Complete) return gst_pad_push(self->src, buffer.release());

  GstMapInfo map;
  if (!gst_buffer_map(buffer.get(), &map, GST_MAP_READ)) return GST_FLOW_ERROR;
  const Status status = header.feed(map.data, map.size);
  gst_buffer_unmap(buffer.get(), &map);
  if (!checkStatus(self, status)) return GST_FLOW_ERROR;

  self->reading->held.push_back(std::move(buffer));
  if (status == Status::NeedsMore) return GST_FLOW_OK;
  if (!checkSize(self)) return GST_FLOW_ERROR;
  publishMetadata(self);
  return passHeld(self);
}

GstFlowReturn chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  auto* self = METADATA_DEMUX(parent);
  GstRef<GstBuffer> owned(buffer);
  try {
    return takeData(self, std::move(owned));
  } catch (const std::bad_alloc&) {
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory."), (nullptr));
    return GST_FLOW_ERROR;
  }
}

// A file source tells no caps; what passes here is always the same.
void ensureCaps(MetadataDemux* self) {
  if (gst_pad_has_current_caps(self->src)) return;
  GstCaps* caps = gst_caps_new_empty_simple("image/jpeg");
  gst_pad_push_event(self->src, gst_event_new_caps(caps));
  gst_caps_unref(caps);
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
  auto* self = METADATA_DEMUX(parent);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_STREAM_START:
    case GST_EVENT_FLUSH_STOP:
      reset(self);
      break;
    case GST_EVENT_SEGMENT:
      ensureCaps(self);
      break;
    case GST_EVENT_EOS:
      if (self->reading->header.status() == Status::NeedsMore) {
        GST_ELEMENT_ERROR(self, STREAM, DEMUX, ("The JPEG picture ends within its header."),
                          (nullptr));
      }
      break;
    default:
      break;
  }
  return gst_pad_event_default(pad, parent, event);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(metadata_demux_parent_class)->change_state(element, transition);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) reset(METADATA_DEMUX(element));
  return result;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
  auto* self = METADATA_DEMUX(object);
  if (id != PropParseOnly) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    return;
  }
  self->parseOnly = g_value_get_boolean(value);
  if (!self->parseOnly) GST_WARNING_OBJECT(self, "metadata stays in the data, it is only parsed");
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* property) {
  if (id == PropParseOnly) {
    g_value_set_boolean(value, METADATA_DEMUX(object)->parseOnly);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void finalize(GObject* object) {
  delete METADATA_DEMUX(object)->reading;
  G_OBJECT_CLASS(metadata_demux_parent_class)->finalize(object);
}

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg"));
GstStaticPadTemplate gSrcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg"));

}  // namespace

static void metadata_demux_class_init(MetadataDemuxClass* type) {
  auto* object = G_OBJECT_CLASS(type);
  object->set_property = setProperty;
  object->get_property = getProperty;
  object->finalize = finalize;
  g_object_class_install_property(
      object, PropParseOnly,
      g_param_spec_boolean("parse-only", "Parse only",
                           "Leave the metadata in the data; the only way that is supported", TRUE,
                           static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
  auto* element = GST_ELEMENT_CLASS(type);
  element->change_state = changeState;
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "Picture metadata reader", "Demuxer/Metadata",
                                        "Publishes the metadata of a JPEG picture and passes it on",
                                        "The developers of the transcoding service");
}

static void metadata_demux_init(MetadataDemux* self) {
  self->parseOnly = TRUE;
  self->reading = new Reading;
  self->sink = gst_pad_new_from_static_template(&gSinkTemplate, "sink");
  gst_pad_set_chain_function(self->sink, chain);
  gst_pad_set_event_function(self->sink, sinkEvent);
  gst_element_add_pad(GST_ELEMENT(self), self->sink);
  self->src = gst_pad_new_from_static_template(&gSrcTemplate, "src");
  gst_element_add_pad(GST_ELEMENT(self), self->src);
}

bool registerMetadataDemux(GstPlugin* plugin) {
  return gst_element_register(plugin, "metadatademux", GST_RANK_NONE, METADATA_TYPE_DEMUX);
}
