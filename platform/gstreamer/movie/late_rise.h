// A guard for elements whose state is raised from a streaming thread.
#ifndef PLATFORM_GSTREAMER_MOVIE_LATE_RISE_H
#define PLATFORM_GSTREAMER_MOVIE_LATE_RISE_H

#include <gst/gst.h>

// Returns whether the element is to rise above the state that its parent is going down to. The
// parent has passed this element already or will do so in a moment; raised now, it would be left
// running in a pipeline that is being released.
inline bool risesLate(GstElement* element, GstStateChange transition) {
  auto* parent = GST_ELEMENT(gst_object_get_parent(GST_OBJECT(element)));
  if (parent == nullptr) return false;
  GST_OBJECT_LOCK(parent);
  const GstState goal = GST_STATE_PENDING(parent);
  GST_OBJECT_UNLOCK(parent);
  gst_object_unref(parent);
  const GstState next = GST_STATE_TRANSITION_NEXT(transition);
  return next > GST_STATE_TRANSITION_CURRENT(transition) && goal != GST_STATE_VOID_PENDING &&
         goal < next;
}

#endif
