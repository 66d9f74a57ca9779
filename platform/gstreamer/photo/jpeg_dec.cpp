// The element "jpegdec".
//
// Stands in for GStreamer's element of that name. It decodes one JPEG picture, straight into the
// size that downstream would rather have, and ends the stream behind it: where a photo shrinks much
// most of it is never computed, and no picture of the source's size is held. Downstream tells the
// size in the first structure of its caps; where that leaves a side open, the side stays.
//
// What cannot be decoded gets an ERROR message in plain words. So does what breaks off, has sides
// that no encoder takes, or needs more memory than all pictures together may have; a picture that
// finds too little of it left waits for the others.
//
// Thread: the decoding belongs to the streaming thread; it is reset when no such thread runs.
#include <gst/video/video.h>

#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/gst_ref.h"
#include "platform/gstreamer/photo/elements.h"
#include "platform/gstreamer/photo/heap_trim.h"
#include "platform/gstreamer/photo/picture_canvas.h"
#include "platform/gstreamer/photo/picture_memory.h"
#include "platform/jpeg/jpeg_decoder.h"

namespace {

using Progress = JpegDecoder::Progress;
using Failure = JpegDecoder::Failure;

// libjpeg refuses to encode sides over 65,500, and sides are made multiples of 16.
constexpr int kMaxSide = 65488;
constexpr size_t kTotalMemory = 256 << 20;

// Never destroyed: a process may exit while pictures wait.
PictureMemory& gMemory = *new PictureMemory(kTotalMemory);

// The samples on their way downstream.
struct Picture {
  PictureMemory::Share share;
  std::unique_ptr<uint8_t[]> samples;
};

// What is known of the current stream.
struct Decoding {
  enum class Phase { Header, Start, Rows, Done };

  Phase phase = Phase::Header;
  bool hasData = false;
  JpegDecoder decoder;
  GstVideoInfo layout = {};
  int eighths = 8;
  std::unique_ptr<Picture> picture;
  std::optional<PictureCanvas> canvas;
  std::vector<GstRef<GstEvent>> heldEvents;  // until there are caps that they may follow
};

}  // namespace

struct _TarnJpegDec {
  GstElement parent;
  GstPad* sink;
  GstPad* src;
  PictureMemory::Waiter* waiter;  // owned
  Decoding* decoding;             // owned
};

#define TARN_TYPE_JPEG_DEC (tarn_jpeg_dec_get_type())
G_DECLARE_FINAL_TYPE(TarnJpegDec, tarn_jpeg_dec, TARN, JPEG_DEC, GstElement)
TARN_DEFINE_TYPE(TarnJpegDec, tarn_jpeg_dec, GST_TYPE_ELEMENT)

namespace {

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg"));
GstStaticPadTemplate gSrcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE("{ I420, GRAY8 }")));

void reset(TarnJpegDec* self) {
  delete std::exchange(self->decoding, new Decoding);
}

GstFlowReturn refuse(TarnJpegDec* self, Failure why, const std::string& detail) {
  const char* debug = detail.c_str();
  switch (why) {
    case Failure::BreaksOff:
      GST_ELEMENT_ERROR(self, STREAM, DECODE, ("The JPEG picture breaks off."), ("%s", debug));
      break;
    case Failure::NotSupported:
      GST_ELEMENT_ERROR(self, STREAM, FORMAT,
                        ("The JPEG picture is of a kind that cannot be decoded: %s.", debug),
                        (nullptr));
      break;
    case Failure::TooLarge:
      GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("The JPEG picture is too large: %s.", debug),
                        (nullptr));
      break;
    case Failure::NoMemory:
      GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory."),
                        ("%s", debug));
      break;
    default:
      GST_ELEMENT_ERROR(self, STREAM, DECODE, ("The JPEG picture is damaged."), ("%s", debug));
  }
  return GST_FLOW_ERROR;
}

// The first of what downstream takes, as far as it is open nearest to the picture itself.
bool chooseLayout(TarnJpegDec* self) {
  Decoding& d = *self->decoding;
  GstCaps* possible = gst_pad_get_pad_template_caps(self->src);
  if (d.decoder.colours() != JpegColours::Gray) {
    possible = gst_caps_make_writable(possible);
    gst_caps_set_simple(possible, "format", G_TYPE_STRING, "I420", nullptr);
  }
  GstCaps* wanted = gst_pad_peer_query_caps(self->src, possible);
  gst_caps_unref(possible);
  if (gst_caps_is_empty(wanted)) {
    gst_caps_unref(wanted);
    return false;
  }
  wanted = gst_caps_make_writable(gst_caps_truncate(wanted));
  GstStructure* first = gst_caps_get_structure(wanted, 0);
  gst_structure_fixate_field_string(first, "format", "GRAY8");
  gst_structure_fixate_field_nearest_int(first, "width", d.decoder.width());
  gst_structure_fixate_field_nearest_int(first, "height", d.decoder.height());
  int width = 0;
  int height = 0;
  gst_structure_get_int(first, "width", &width);
  gst_structure_get_int(first, "height", &height);
  const bool isGray = g_strcmp0(gst_structure_get_string(first, "format"), "GRAY8") == 0;
  gst_caps_unref(wanted);
  // GStreamer counts a picture's bytes in 32 bits, and has no layout for one of more.
  if (!gst_video_info_set_format(&d.layout, isGray ? GST_VIDEO_FORMAT_GRAY8 : GST_VIDEO_FORMAT_I420,
                                 static_cast<guint>(width), static_cast<guint>(height))) {
    return false;
  }
  GST_VIDEO_INFO_FPS_N(&d.layout) = 0;
  GST_VIDEO_INFO_FPS_D(&d.layout) = 1;
  d.layout.chroma_site = GST_VIDEO_CHROMA_SITE_JPEG;
  gst_video_colorimetry_from_string(&d.layout.colorimetry, "1:4:0:0");
  return true;
}

bool isEncodable(int width, int height) {
  return width <= kMaxSide && height <= kMaxSide;
}

// The smallest eighths that leave the scaling enough to take a mean of. libjpeg's reduced
// transforms cut a block's frequencies off, block by block: at the wanted size itself that is up to
// 1 dB off a proper filter. Of 4 x 4 samples a block twice the size is enough, measured on photos;
// of 2 x 2, where a page's lines become other lines, four times.
int chooseEighths(const JpegDecoder& decoder, const GstVideoInfo& layout) {
  struct Choice {
    int eighths;
    double spare;
  };
  for (const Choice& choice : {Choice{1, 7}, Choice{2, 3.5}, Choice{4, 1.75}}) {
    const double least = 8 * choice.spare;
    if (decoder.width() * choice.eighths >= least * GST_VIDEO_INFO_WIDTH(&layout) &&
        decoder.height() * choice.eighths >= least * GST_VIDEO_INFO_HEIGHT(&layout)) {
      return choice.eighths;
    }
  }
  return 8;
}

GstFlowReturn takeMemory(TarnJpegDec* self) {
  Decoding& d = *self->decoding;
  const size_t bytes = GST_VIDEO_INFO_SIZE(&d.layout) + d.decoder.coefficientBytes() +
                       PictureCanvas::workBytes(d.decoder, d.layout);
  d.picture = std::make_unique<Picture>();
  switch (gMemory.take(bytes, self->waiter, &d.picture->share)) {
    case PictureMemory::Answer::TooMuch:
      return refuse(self, Failure::TooLarge,
                    "It needs " + std::to_string(bytes >> 20) + " MiB of memory, at most " +
                        std::to_string(gMemory.totalBytes() >> 20) + " can be had");
    case PictureMemory::Answer::Cancelled:
      return GST_FLOW_FLUSHING;
    case PictureMemory::Answer::Given:
      break;
  }
  d.picture->samples.reset(new uint8_t[GST_VIDEO_INFO_SIZE(&d.layout)]);
  return GST_FLOW_OK;
}

// Behind the header: what will be made, where, and of what.
GstFlowReturn prepare(TarnJpegDec* self) {
  Decoding& d = *self->decoding;
  if (!isEncodable(d.decoder.width(), d.decoder.height())) {
    return refuse(self, Failure::TooLarge,
                  "A side has more than " + std::to_string(kMaxSide) + " pixels");
  }
  if (!chooseLayout(self)) {
    GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("Nobody takes the decoded picture."), (nullptr));
    return GST_FLOW_NOT_NEGOTIATED;
  }
  if (!isEncodable(GST_VIDEO_INFO_WIDTH(&d.layout), GST_VIDEO_INFO_HEIGHT(&d.layout))) {
    return refuse(self, Failure::TooLarge,
                  "A new side would have more than " + std::to_string(kMaxSide) + " pixels");
  }
  d.eighths = chooseEighths(d.decoder, d.layout);
  GST_DEBUG_OBJECT(self, "decoding %d x %d at %d/8 for %d x %d", d.decoder.width(),
                   d.decoder.height(), d.eighths, GST_VIDEO_INFO_WIDTH(&d.layout),
                   GST_VIDEO_INFO_HEIGHT(&d.layout));
  return takeMemory(self);
}

GstFlowReturn pushPicture(TarnJpegDec* self) {
  Decoding& d = *self->decoding;
  GstCaps* caps = gst_video_info_to_caps(&d.layout);
  const bool agreed = gst_pad_push_event(self->src, gst_event_new_caps(caps));
  gst_caps_unref(caps);
  if (!agreed) {
    GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("Nobody takes the decoded picture."), (nullptr));
    return GST_FLOW_NOT_NEGOTIATED;
  }
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  gst_pad_push_event(self->src, gst_event_new_segment(&segment));
  for (GstRef<GstEvent>& event : std::exchange(d.heldEvents, {})) {
    gst_pad_push_event(self->src, event.release());
  }

  Picture* picture = d.picture.release();
  const gsize sizeBytes = GST_VIDEO_INFO_SIZE(&d.layout);
  GstBuffer* buffer = gst_buffer_new_wrapped_full(
      static_cast<GstMemoryFlags>(0), picture->samples.get(), sizeBytes, 0, sizeBytes, picture,
      [](gpointer data) { delete static_cast<Picture*>(data); });
  GST_BUFFER_PTS(buffer) = 0;
  const GstFlowReturn flow = gst_pad_push(self->src, buffer);
  return flow == GST_FLOW_OK ? GST_FLOW_EOS : flow;
}

// Decodes as far as the data goes. OK: more is needed; EOS: the picture was passed on.
GstFlowReturn decode(TarnJpegDec* self) {
  using Phase = Decoding::Phase;
  Decoding& d = *self->decoding;
  while (d.phase != Phase::Done) {
    const Progress progress = d.phase == Phase::Header  ? d.decoder.readHeader()
                              : d.phase == Phase::Start ? d.decoder.start(d.eighths)
                                                        : d.decoder.readRows();
    if (progress == Progress::NeedsData) return GST_FLOW_OK;
    if (progress == Progress::Failed) {
      return refuse(self, d.decoder.failure(), d.decoder.errorText());
    }
    if (d.phase == Phase::Header) {
      const GstFlowReturn flow = prepare(self);
      if (flow != GST_FLOW_OK) return flow;
      d.phase = Phase::Start;
    } else if (d.phase == Phase::Start) {
      d.canvas.emplace(d.decoder, d.layout, d.picture->samples.get());
      d.phase = Phase::Rows;
    } else if (progress == Progress::Ended) {
      d.canvas->finish();
      d.phase = Phase::Done;
    } else {
      d.canvas->takeRows();
    }
  }
  d.canvas.reset();
  return pushPicture(self);
}

GstFlowReturn decodeOrSay(TarnJpegDec* self) {
  try {
    return decode(self);
  } catch (const std::bad_alloc&) {
    return refuse(self, Failure::NoMemory, "");
  }
}

GstFlowReturn chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  auto* self = TARN_JPEG_DEC(parent);
  Decoding& d = *self->decoding;
  GstMapInfo map;
  GstFlowReturn flow = GST_FLOW_ERROR;
  if (d.phase == Decoding::Phase::Done) {
    flow = GST_FLOW_EOS;
  } else if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
    d.hasData = true;
    d.decoder.addData(map.data, map.size);
    gst_buffer_unmap(buffer, &map);
    flow = decodeOrSay(self);
  }
  gst_buffer_unref(buffer);
  return flow;
}

// Whether the end may go on downstream: not behind an error, which has told of it already.
bool takeEnd(TarnJpegDec* self) {
  Decoding& d = *self->decoding;
  if (!d.hasData || d.phase == Decoding::Phase::Done) return true;
  d.decoder.endData();
  return decodeOrSay(self) == GST_FLOW_EOS;
}

bool isSerialized(GstEvent* event) {
  return (gst_event_type_get_flags(GST_EVENT_TYPE(event)) & GST_EVENT_TYPE_SERIALIZED) != 0;
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
  auto* self = TARN_JPEG_DEC(parent);
  GstRef<GstEvent> owned(event);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_START:
      gMemory.cancel(self->waiter);
      break;
    case GST_EVENT_FLUSH_STOP:
      gMemory.allow(self->waiter);
      reset(self);
      break;
    case GST_EVENT_STREAM_START:
      reset(self);
      break;
    case GST_EVENT_CAPS:  // what comes out has its own
    case GST_EVENT_SEGMENT:
      return TRUE;
    case GST_EVENT_EOS:
      if (!takeEnd(self)) return FALSE;
      break;
    default:
      if (!isSerialized(event) || self->decoding->phase == Decoding::Phase::Done) break;
      self->decoding->heldEvents.push_back(std::move(owned));
      return TRUE;
  }
  return gst_pad_event_default(pad, parent, owned.release());
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  auto* self = TARN_JPEG_DEC(element);
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) gMemory.allow(self->waiter);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) gMemory.cancel(self->waiter);
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(tarn_jpeg_dec_parent_class)->change_state(element, transition);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) reset(self);
  return result;
}

void finalize(GObject* object) {
  auto* self = TARN_JPEG_DEC(object);
  delete self->decoding;
  delete self->waiter;
  G_OBJECT_CLASS(tarn_jpeg_dec_parent_class)->finalize(object);
  trimHeapWhenQuiet();
}

}  // namespace

static void tarn_jpeg_dec_class_init(TarnJpegDecClass* type) {
  G_OBJECT_CLASS(type)->finalize = finalize;
  auto* element = GST_ELEMENT_CLASS(type);
  element->change_state = changeState;
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "JPEG picture decoder", "Codec/Decoder/Image",
                                        "Decodes a JPEG picture into the size that is wanted",
                                        "The developers of the transcoding service");
}

static void tarn_jpeg_dec_init(TarnJpegDec* self) {
  self->waiter = new PictureMemory::Waiter;
  self->decoding = new Decoding;
  self->sink = gst_pad_new_from_static_template(&gSinkTemplate, "sink");
  gst_pad_set_chain_function(self->sink, chain);
  gst_pad_set_event_function(self->sink, sinkEvent);
  gst_element_add_pad(GST_ELEMENT(self), self->sink);
  self->src = gst_pad_new_from_static_template(&gSrcTemplate, "src");
  gst_pad_use_fixed_caps(self->src);
  gst_element_add_pad(GST_ELEMENT(self), self->src);
}

bool registerJpegDec(GstPlugin* plugin) {
  return gst_element_register(plugin, kJpegDecName, GST_RANK_PRIMARY, TARN_TYPE_JPEG_DEC);
}
