// The element "videoscale".
//
// Stands in for GStreamer's element of that name, which makes each new pixel of the two old ones
// next to it: a photo that shrinks by more than two gets false patterns. This one looks at all of
// the old pixels. It fills the whole of the new picture, without borders, and so knows nothing of
// the pixels' aspect.
//
// Thread: the streaming thread.
#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include <initializer_list>
#include <new>

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/photo/elements.h"
#include "platform/jpeg/plane_resampler.h"

struct TarnVideoScale {
  GstVideoFilter parent;
};
struct TarnVideoScaleClass {
  GstVideoFilterClass parent;
};

static GType tarn_video_scale_get_type();
TARN_DEFINE_TYPE(TarnVideoScale, tarn_video_scale, GST_TYPE_VIDEO_FILTER)

namespace {

// All of one byte a sample.
#define FORMATS                                                                      \
  "{ I420, YV12, Y42B, Y444, Y41B, YUV9, YVU9, NV12, NV21, NV16, NV61, NV24, YUY2, " \
  "UYVY, YVYU, VYUY, v308, IYU2, A420, AYUV, VUYA, GRAY8, RGB, BGR, RGBx, BGRx, "    \
  "xRGB, xBGR, RGBA, BGRA, ARGB, ABGR, GBR, GBRA }"
GstStaticPadTemplate gSinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE(FORMATS)));
GstStaticPadTemplate gSrcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE(FORMATS)));
#undef FORMATS

// Any size becomes any other; the rest stays. The same size comes first: a decoder that can make it
// spares us the scaling.
GstCaps* transformCaps(GstBaseTransform*, GstPadDirection, GstCaps* caps, GstCaps* filter) {
  GstCaps* others = gst_caps_copy(caps);
  GstCaps* anySize = gst_caps_copy(caps);
  for (guint i = 0; i < gst_caps_get_size(caps); i++) {
    GstStructure* other = gst_caps_get_structure(anySize, i);
    gst_structure_set(other, "width", GST_TYPE_INT_RANGE, 1, G_MAXINT, "height", GST_TYPE_INT_RANGE,
                      1, G_MAXINT, nullptr);
    gst_structure_remove_field(other, "pixel-aspect-ratio");
    gst_structure_remove_field(gst_caps_get_structure(others, i), "pixel-aspect-ratio");
  }
  gst_caps_append(others, anySize);
  if (filter == nullptr) return others;
  GstCaps* chosen = gst_caps_intersect_full(filter, others, GST_CAPS_INTERSECT_FIRST);
  gst_caps_unref(others);
  return chosen;
}

// The size stays, as far as it may.
GstCaps* fixateCaps(GstBaseTransform*, GstPadDirection, GstCaps* caps, GstCaps* others) {
  others = gst_caps_make_writable(gst_caps_truncate(others));
  const GstStructure* known = gst_caps_get_structure(caps, 0);
  GstStructure* other = gst_caps_get_structure(others, 0);
  for (const char* side : {"width", "height"}) {
    int size = 0;
    if (gst_structure_get_int(known, side, &size)) {
      gst_structure_fixate_field_nearest_int(other, side, size);
    }
  }
  return gst_caps_fixate(others);
}

gboolean setInfo(GstVideoFilter* filter, GstCaps*, GstVideoInfo* in, GstCaps*, GstVideoInfo* out) {
  const bool same = GST_VIDEO_INFO_WIDTH(in) == GST_VIDEO_INFO_WIDTH(out) &&
                    GST_VIDEO_INFO_HEIGHT(in) == GST_VIDEO_INFO_HEIGHT(out);
  gst_base_transform_set_passthrough(GST_BASE_TRANSFORM(filter), same);
  return TRUE;
}

template <typename Sample>
PlaneOf<Sample> component(const GstVideoFrame& frame, guint i) {
  return {GST_VIDEO_FRAME_COMP_DATA(&frame, i), GST_VIDEO_FRAME_COMP_WIDTH(&frame, i),
          GST_VIDEO_FRAME_COMP_HEIGHT(&frame, i), GST_VIDEO_FRAME_COMP_STRIDE(&frame, i),
          GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, i)};
}

GstFlowReturn transformFrame(GstVideoFilter* filter, GstVideoFrame* in, GstVideoFrame* out) {
  try {
    for (guint i = 0; i < GST_VIDEO_FRAME_N_COMPONENTS(in); i++) {
      resamplePlane(component<const uint8_t>(*in, i), component<uint8_t>(*out, i));
    }
    return GST_FLOW_OK;
  } catch (const std::bad_alloc&) {
    GST_ELEMENT_ERROR(filter, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory."), (nullptr));
    return GST_FLOW_ERROR;
  }
}

}  // namespace

static void tarn_video_scale_class_init(TarnVideoScaleClass* type) {
  auto* transform = GST_BASE_TRANSFORM_CLASS(type);
  transform->transform_caps = transformCaps;
  transform->fixate_caps = fixateCaps;
  auto* filter = GST_VIDEO_FILTER_CLASS(type);
  filter->set_info = setInfo;
  filter->transform_frame = transformFrame;
  auto* element = GST_ELEMENT_CLASS(type);
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_add_static_pad_template(element, &gSrcTemplate);
  gst_element_class_set_static_metadata(element, "Picture scaler", "Filter/Converter/Video/Scaler",
                                        "Scales pictures without false patterns",
                                        "The developers of the transcoding service");
}

static void tarn_video_scale_init(TarnVideoScale*) {}

bool registerVideoScale(GstPlugin* plugin) {
  return gst_element_register(plugin, "videoscale", GST_RANK_NONE, tarn_video_scale_get_type());
}
