// The elements "tarnamrdemux" and "tarnmp3demux": hand on bare streams of AMR and MP3 frames.
//
// A file of such frames has no container to take off, so the data passes as it is, for decoders
// that find the frames themselves. It keeps no time stamps: in a movie these elements are out of
// place, and whoever plugs elements together by themselves knows them by their long names.
#include "platform/gstreamer/movie/elements.h"

#include "platform/gstreamer/define_type.h"

struct TarnBareDemux {
  GstElement parent;
  GstPad* src;  // belongs to the element
};
struct TarnBareDemuxClass {
  GstElementClass parent;
};
struct TarnAmrDemux {
  TarnBareDemux parent;
};
struct TarnAmrDemuxClass {
  TarnBareDemuxClass parent;
};
struct TarnMp3Demux {
  TarnBareDemux parent;
};
struct TarnMp3DemuxClass {
  TarnBareDemuxClass parent;
};

static GType tarn_bare_demux_get_type();
static GType tarn_amr_demux_get_type();
static GType tarn_mp3_demux_get_type();
TARN_DEFINE_ABSTRACT_TYPE(TarnBareDemux, tarn_bare_demux, GST_TYPE_ELEMENT)
TARN_DEFINE_TYPE(TarnAmrDemux, tarn_amr_demux, tarn_bare_demux_get_type())
TARN_DEFINE_TYPE(TarnMp3Demux, tarn_mp3_demux, tarn_bare_demux_get_type())

namespace {

GstPad* srcPad(GstObject* element) {
  return G_TYPE_CHECK_INSTANCE_CAST(element, tarn_bare_demux_get_type(), TarnBareDemux)->src;
}

GstFlowReturn chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  return gst_pad_push(srcPad(parent), buffer);
}

// The stream's own caps say more than ours, but not that the frames are to be taken as they are.
GstCaps* framedCaps(GstPad* src, GstEvent* event) {
  GstCaps* given = nullptr;
  gst_event_parse_caps(event, &given);
  GstCaps* framed = gst_pad_get_pad_template_caps(src);
  GstCaps* merged = gst_caps_intersect(framed, given);
  const bool fits = !gst_caps_is_empty(merged) && gst_caps_is_fixed(merged);
  gst_caps_unref(fits ? framed : merged);
  return fits ? merged : framed;
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
  if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return gst_pad_event_default(pad, parent, event);
  GstPad* src = srcPad(parent);
  GstCaps* caps = framedCaps(src, event);
  gst_event_unref(event);
  const gboolean taken = gst_pad_push_event(src, gst_event_new_caps(caps));
  gst_caps_unref(caps);
  return taken;
}

GstStaticPadTemplate gAmrSink = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("audio/x-amr-nb-sh; audio/x-amr-wb-sh"));
GstStaticPadTemplate gAmrSrc = GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                                                       GST_STATIC_CAPS("audio/AMR, channels=1"));
GstStaticPadTemplate gMp3Sink =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/mpeg, mpegversion=1, layer=3, parsed=false"));
GstStaticPadTemplate gMp3Src =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/mpeg, mpegversion=1, layer=3, parsed=true"));

void describe(gpointer type, const char* longName, const char* what, GstStaticPadTemplate* sink,
              GstStaticPadTemplate* src) {
  auto* element = GST_ELEMENT_CLASS(type);
  gst_element_class_add_static_pad_template(element, sink);
  gst_element_class_add_static_pad_template(element, src);
  gst_element_class_set_static_metadata(element, longName, "Codec/Demuxer/Parser/Audio", what,
                                        "The developers of the transcoding service");
}

void addPads(GstElement* self, GstPad** src) {
  GstElementClass* type = GST_ELEMENT_GET_CLASS(self);
  GstPad* sink =
      gst_pad_new_from_template(gst_element_class_get_pad_template(type, "sink"), "sink");
  gst_pad_set_chain_function(sink, chain);
  gst_pad_set_event_function(sink, sinkEvent);
  gst_element_add_pad(self, sink);
  *src = gst_pad_new_from_template(gst_element_class_get_pad_template(type, "src"), "src");
  gst_element_add_pad(self, *src);
}

}  // namespace

static void tarn_bare_demux_class_init(TarnBareDemuxClass*) {}
static void tarn_bare_demux_init(TarnBareDemux*) {}

static void tarn_amr_demux_class_init(TarnAmrDemuxClass* type) {
  describe(type, "tarnamrdemux", "Hands on a bare stream of AMR frames", &gAmrSink, &gAmrSrc);
}
static void tarn_amr_demux_init(TarnAmrDemux* self) {
  addPads(GST_ELEMENT(self), &self->parent.src);
}

static void tarn_mp3_demux_class_init(TarnMp3DemuxClass* type) {
  describe(type, "tarnmp3demux", "Hands on a bare stream of MP3 frames", &gMp3Sink, &gMp3Src);
}
static void tarn_mp3_demux_init(TarnMp3Demux* self) {
  addPads(GST_ELEMENT(self), &self->parent.src);
}

// Parsers that rank above the usual ones: without a selection they are plugged first.
bool registerBareDemuxers(GstPlugin* plugin) {
  const guint rank = GST_RANK_PRIMARY + 10;
  return gst_element_register(plugin, "tarnamrdemux", rank, tarn_amr_demux_get_type()) &&
         gst_element_register(plugin, "tarnmp3demux", rank, tarn_mp3_demux_get_type());
}
