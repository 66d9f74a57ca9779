// The element "decodebin2": finds the demuxer and the decoders of a file by itself.
//
// It is the "decodebin" of today with the signals of its forerunner. All decoded pads are announced
// by "new-decoded-pad" in one go, once the last of them is known, and no data leaves before the
// handlers are done: whoever needs more than one stream can get everything ready in them.
//
// Thread: the signals come from a streaming thread, never two at a time.
#include <gst/gst.h>

#include <memory>
#include <vector>

#include "platform/gstreamer/movie/elements.h"

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/gst_ref.h"

struct _TarnDecodeBin2 {
  GstBin parent;
  GstElement* decoder;  // belongs to the bin; null where decodebin is not installed
  GstBus* relay;        // owned; the bus of what decodebin plugs, on its way to decodebin
};

#define TARN_TYPE_DECODE_BIN2 (tarn_decode_bin2_get_type())
G_DECLARE_FINAL_TYPE(TarnDecodeBin2, tarn_decode_bin2, TARN, DECODE_BIN2, GstBin)
TARN_DEFINE_TYPE(TarnDecodeBin2, tarn_decode_bin2, GST_TYPE_BIN)

namespace {

// The answers to "autoplug-select". decodebin looks its own enumeration type up by name, so this
// one stays an int: a type registered under the same name here would block it for ever.
enum AutoplugSelect { AutoplugTry = 0 };

enum { SignalNewDecodedPad, SignalAutoplugContinue, SignalAutoplugSelect, SignalCount };
guint gSignals[SignalCount];

// Where a pad of the inner decodebin keeps the ghost pad that shows it outside.
constexpr char kGhost[] = "tarn-ghost";

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
GstStaticPadTemplate gSrcTemplate =
    GST_STATIC_PAD_TEMPLATE("src_%u", GST_PAD_SRC, GST_PAD_SOMETIMES, GST_STATIC_CAPS_ANY);

gboolean copyStickyEvent(GstPad*, GstEvent** event, gpointer ghost) {
  gst_pad_store_sticky_event(GST_PAD(ghost), *event);
  return TRUE;
}

// The caps have to be on the ghost before the handlers see it; they would come with the data only.
GstPad* addGhost(TarnDecodeBin2* self, GstPad* inner) {
  GstPadTemplate* pattern = gst_static_pad_template_get(&gSrcTemplate);
  GstPad* ghost = gst_ghost_pad_new_from_template(GST_PAD_NAME(inner), inner, pattern);
  gst_object_unref(pattern);
  gst_pad_set_active(ghost, TRUE);
  gst_pad_sticky_events_foreach(inner, copyStickyEvent, ghost);
  g_object_set_data(G_OBJECT(inner), kGhost, ghost);
  gst_element_add_pad(GST_ELEMENT(self), ghost);
  return ghost;
}

gboolean collectUnannounced(GstElement*, GstPad* inner, gpointer pads) {
  if (g_object_get_data(G_OBJECT(inner), kGhost) == nullptr) {
    static_cast<std::vector<GstRef<GstPad>>*>(pads)->emplace_back(GST_PAD(gst_object_ref(inner)));
  }
  return TRUE;
}

void onNoMorePads(GstElement* decoder, TarnDecodeBin2* self) {
  std::vector<GstRef<GstPad>> pads;
  gst_element_foreach_src_pad(decoder, collectUnannounced, &pads);
  for (const GstRef<GstPad>& inner : pads) {
    const GstRef<GstPad> ghost(GST_PAD(gst_object_ref(addGhost(self, inner.get()))));
    const gboolean last = inner == pads.back();
    g_signal_emit(self, gSignals[SignalNewDecodedPad], 0, ghost.get(), last);
  }
  gst_element_no_more_pads(GST_ELEMENT(self));
}

void onPadRemoved(GstElement*, GstPad* inner, TarnDecodeBin2* self) {
  auto* ghost = static_cast<GstPad*>(g_object_steal_data(G_OBJECT(inner), kGhost));
  if (ghost == nullptr) return;
  gst_pad_set_active(ghost, FALSE);
  gst_element_remove_pad(GST_ELEMENT(self), ghost);
}

gboolean onAutoplugContinue(GstElement*, GstPad* pad, GstCaps* caps, TarnDecodeBin2* self) {
  gboolean result = TRUE;
  g_signal_emit(self, gSignals[SignalAutoplugContinue], 0, pad, caps, &result);
  return result;
}

int onAutoplugSelect(GstElement*, GstPad* pad, GstCaps* caps, GstElementFactory* factory,
                     TarnDecodeBin2* self) {
  int result = AutoplugTry;
  g_signal_emit(self, gSignals[SignalAutoplugSelect], 0, pad, caps, factory, &result);
  return result;
}

// Where a plugged element keeps the thread that plugged it.
constexpr char kPlugger[] = "tarn-plugger";

// decodebin swallows the errors of an element while it plugs it, to try the next one instead. An
// element whose own thread has failed by then is kept all the same, and its error is lost: nothing
// would ever come of the file. So these errors go past decodebin. The message is taken over, as by
// every handler that answers DROP.
GstBusSyncReply relayMessage(GstBus*, GstMessage* message, gpointer data) {
  auto* self = TARN_DECODE_BIN2(data);
  GstObject* source = GST_MESSAGE_SRC(message);
  const bool passes =
      GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR && source != nullptr &&
      g_object_get_data(G_OBJECT(source), kPlugger) != static_cast<gpointer>(g_thread_self());
  if (passes) {
    gst_element_post_message(GST_ELEMENT(self), message);
  } else {
    gst_bus_post(GST_BIN(self->decoder)->child_bus, message);
  }
  return GST_BUS_DROP;
}

void onElementAdded(GstBin*, GstElement* plugged, TarnDecodeBin2* self) {
  g_object_set_data(G_OBJECT(plugged), kPlugger, g_thread_self());
  gst_element_set_bus(plugged, self->relay);
}

void finalize(GObject* object) {
  gst_object_unref(TARN_DECODE_BIN2(object)->relay);
  G_OBJECT_CLASS(tarn_decode_bin2_parent_class)->finalize(object);
}

gboolean continueByDefault(TarnDecodeBin2*, GstPad*, GstCaps*) {
  return TRUE;
}

int tryByDefault(TarnDecodeBin2*, GstPad*, GstCaps*, GstElementFactory*) {
  return AutoplugTry;
}

// The first handler that says "stop here" decides.
gboolean untilFalse(GSignalInvocationHint*, GValue* result, const GValue* answer, gpointer) {
  g_value_copy(answer, result);
  return g_value_get_boolean(answer);
}

// The first handler that does not leave the matter to the others decides.
gboolean untilNotTry(GSignalInvocationHint*, GValue* result, const GValue* answer, gpointer) {
  g_value_copy(answer, result);
  return g_value_get_int(answer) == AutoplugTry;
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  auto* self = TARN_DECODE_BIN2(element);
  if (self->decoder == nullptr && transition == GST_STATE_CHANGE_NULL_TO_READY) {
    GST_ELEMENT_ERROR(self, CORE, MISSING_PLUGIN, ("The element \"decodebin\" is not installed."),
                      (nullptr));
    return GST_STATE_CHANGE_FAILURE;
  }
  return GST_ELEMENT_CLASS(tarn_decode_bin2_parent_class)->change_state(element, transition);
}

void addSignals(GObjectClass* object) {
  const GType type = G_TYPE_FROM_CLASS(object);
  gSignals[SignalNewDecodedPad] =
      g_signal_new("new-decoded-pad", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                   G_TYPE_NONE, 2, GST_TYPE_PAD, G_TYPE_BOOLEAN);
  gSignals[SignalAutoplugContinue] = g_signal_new_class_handler(
      "autoplug-continue", type, G_SIGNAL_RUN_LAST, G_CALLBACK(continueByDefault), untilFalse,
      nullptr, nullptr, G_TYPE_BOOLEAN, 2, GST_TYPE_PAD, GST_TYPE_CAPS);
  gSignals[SignalAutoplugSelect] = g_signal_new_class_handler(
      "autoplug-select", type, G_SIGNAL_RUN_LAST, G_CALLBACK(tryByDefault), untilNotTry, nullptr,
      nullptr, G_TYPE_INT, 3, GST_TYPE_PAD, GST_TYPE_CAPS, GST_TYPE_ELEMENT_FACTORY);
}

}  // namespace

static void tarn_decode_bin2_class_init(TarnDecodeBin2Class* type) {
  addSignals(G_OBJECT_CLASS(type));
  G_OBJECT_CLASS(type)->finalize = finalize;
  auto* element = GST_ELEMENT_CLASS(type);
  element->change_state = changeState;
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "Decoding bin", "Generic/Bin/Decoder",
                                        "Finds the demuxer and the decoders of a file by itself",
                                        "The developers of the transcoding service");
}

static void tarn_decode_bin2_init(TarnDecodeBin2* self) {
  self->relay = GST_BUS(g_object_new(GST_TYPE_BUS, "enable-async", FALSE, nullptr));
  gst_object_ref_sink(self->relay);
  gst_bus_set_sync_handler(self->relay, relayMessage, self, nullptr);
  self->decoder = gst_element_factory_make("decodebin", "decoder");
  GstPad* target = nullptr;
  if (self->decoder != nullptr) {
    gst_bin_add(GST_BIN(self), self->decoder);
    g_signal_connect(self->decoder, "element-added", G_CALLBACK(onElementAdded), self);
    g_signal_connect(self->decoder, "no-more-pads", G_CALLBACK(onNoMorePads), self);
    g_signal_connect(self->decoder, "pad-removed", G_CALLBACK(onPadRemoved), self);
    g_signal_connect(self->decoder, "autoplug-continue", G_CALLBACK(onAutoplugContinue), self);
    g_signal_connect(self->decoder, "autoplug-select", G_CALLBACK(onAutoplugSelect), self);
    target = gst_element_get_static_pad(self->decoder, "sink");
  }
  GstPadTemplate* pattern = gst_static_pad_template_get(&gSinkTemplate);
  gst_element_add_pad(GST_ELEMENT(self),
                      target != nullptr
                          ? gst_ghost_pad_new_from_template("sink", target, pattern)
                          : gst_ghost_pad_new_no_target_from_template("sink", pattern));
  gst_object_unref(pattern);
  if (target != nullptr) gst_object_unref(target);
}

bool registerDecodeBin2(GstPlugin* plugin) {
  return gst_element_register(plugin, "decodebin2", GST_RANK_NONE, TARN_TYPE_DECODE_BIN2);
}
