// The seam between the sources, written against GStreamer 0.10's API, and the series they are built
// on: what 1.x renamed or took away has one name here, the same on both. No other file asks for the
// version.
//
// These need no name here, being the same text on both: gst_element_factory_get_longname (a
// function that became a macro), gst_element_get_static_pad, g_source_remove for a bus watch.
// filesrc's "blocksize" changed its type: set it by gst_util_set_object_arg, never through varargs.
#ifndef PLATFORM_GSTREAMER_GST_SEAM_H
#define PLATFORM_GSTREAMER_GST_SEAM_H

#include <gst/gst.h>

#if GST_CHECK_VERSION(1, 0, 0)

// The media type of raw pictures; 0.10 names the colour family in it, 1.x has one for all.
#define GST_SEAM_RAW_VIDEO "video/x-raw"

// What the pad carries, or could carry while nothing is agreed on; the caller drops it with
// gst_caps_unref. 1.x has no gst_pad_get_caps, though its compatibility header still defines
// gst_pad_get_caps_reffed in terms of it.
inline GstCaps* gstSeamPadCaps(GstPad* pad) {
  GstCaps* caps = gst_pad_get_current_caps(pad);
  return caps != nullptr ? caps : gst_pad_query_caps(pad, nullptr);
}

// Takes the bus's synchronous handler away; 1.x wants a fourth argument, a destroy notification.
inline void gstSeamClearSyncHandler(GstBus* bus) {
  gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
}

#else

#define GST_SEAM_RAW_VIDEO "video/x-raw-yuv"

inline GstCaps* gstSeamPadCaps(GstPad* pad) {
  return gst_pad_get_caps(pad);
}

inline void gstSeamClearSyncHandler(GstBus* bus) {
  gst_bus_set_sync_handler(bus, nullptr, nullptr);
}

#endif

#endif
