#include "platform/gstreamer/gst_seam.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct ObjectUnref {
  void operator()(void* object) const { gst_object_unref(object); }
};
template <typename T>
using ObjectPtr = std::unique_ptr<T, ObjectUnref>;

std::string firstName(GstCaps* caps) {
  return gst_structure_get_name(gst_caps_get_structure(caps, 0));
}

TEST(GstSeam, RawVideoIsWhatTheScalerTakes) {
  const ObjectPtr<GstElement> scaler(gst_element_factory_make("videoscale", nullptr));
  ASSERT_NE(scaler, nullptr);
  const ObjectPtr<GstPad> pad(gst_element_get_static_pad(scaler.get(), "src"));
  g_autoptr(GstCaps) wanted = gst_caps_new_simple(GST_SEAM_RAW_VIDEO, "width", G_TYPE_INT, 64,
                                                  "height", G_TYPE_INT, 48, nullptr);
  g_autoptr(GstCaps) possible = gstSeamPadCaps(pad.get());
  EXPECT_TRUE(gst_caps_can_intersect(wanted, possible));
}

TEST(GstSeam, PadCapsAreTheCurrentOnesElseThePossible) {
  const ObjectPtr<GstPad> pad(gst_pad_new("src", GST_PAD_SRC));
  g_autoptr(GstCaps) possible = gstSeamPadCaps(pad.get());
  EXPECT_TRUE(gst_caps_is_any(possible));

  gst_pad_set_active(pad.get(), TRUE);
  g_autoptr(GstCaps) current = gst_caps_new_empty_simple("image/jpeg");
  gst_pad_push_event(pad.get(), gst_event_new_stream_start("stream"));
  gst_pad_push_event(pad.get(), gst_event_new_caps(current));
  g_autoptr(GstCaps) found = gstSeamPadCaps(pad.get());
  EXPECT_EQ(firstName(found), "image/jpeg");
}

TEST(GstSeam, AClearedSyncHandlerIsCalledNoMore) {
  const ObjectPtr<GstBus> bus(gst_bus_new());
  int calls = 0;
  const auto count = [](GstBus*, GstMessage*, gpointer data) {
    ++*static_cast<int*>(data);
    return GST_BUS_PASS;
  };
  gst_bus_set_sync_handler(bus.get(), count, &calls, nullptr);
  gst_bus_post(bus.get(), gst_message_new_eos(nullptr));
  EXPECT_EQ(calls, 1);
  gstSeamClearSyncHandler(bus.get());
  gst_bus_post(bus.get(), gst_message_new_eos(nullptr));
  EXPECT_EQ(calls, 1);
}

}  // namespace
