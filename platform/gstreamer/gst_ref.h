// One reference to an object of GStreamer, dropped when its owner goes.
#ifndef PLATFORM_GSTREAMER_GST_REF_H
#define PLATFORM_GSTREAMER_GST_REF_H

#include <gst/gst.h>

#include <memory>

struct GstUnref {
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
  void operator()(GstSample* sample) const { gst_sample_unref(sample); }
  void operator()(GstEvent* event) const { gst_event_unref(event); }
  void operator()(GstPad* pad) const { gst_object_unref(pad); }
};

// Takes over the reference that it is made with.
template <typename T>
using GstRef = std::unique_ptr<T, GstUnref>;

#endif
