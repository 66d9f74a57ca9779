#include "platform/gstreamer/photo/orphan_watch.h"

namespace {

constexpr char kHandled[] = "tarn-orphan-watch";

// The caller drops it.
GstObject* topmost(GstElement* element) {
  auto* top = GST_OBJECT(gst_object_ref(element));
  while (GstObject* parent = gst_object_get_parent(top)) {
    gst_object_unref(top);
    top = parent;
  }
  return top;
}

// The bin has dropped its bus by now: two references are the watch's and ours.
void onDisposed(gpointer data, GObject*) {
  auto* bus = static_cast<GstBus*>(data);
  if (GST_OBJECT_REFCOUNT_VALUE(bus) == 2) gst_bus_remove_watch(bus);
  gst_object_unref(bus);
}

}  // namespace

void removeOrphanWatch(GstElement* element) {
  GstObject* top = topmost(element);
  GstBus* bus = GST_IS_PIPELINE(top) ? gst_element_get_bus(GST_ELEMENT(top)) : nullptr;
  if (bus != nullptr && g_object_get_data(G_OBJECT(top), kHandled) == nullptr) {
    g_object_set_data(G_OBJECT(top), kHandled, bus);
    g_object_weak_ref(G_OBJECT(top), onDisposed, bus);
  } else if (bus != nullptr) {
    gst_object_unref(bus);
  }
  gst_object_unref(top);
}
