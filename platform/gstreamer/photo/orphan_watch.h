// Takes away the bus watch of a pipeline that is gone.
//
// A watch that its program never removes keeps the bus, a source and two descriptors for the life
// of the process, and each turn of the main loop looks at all of them: after some thousand pictures
// that is most of a request's time.
#ifndef PLATFORM_GSTREAMER_PHOTO_ORPHAN_WATCH_H
#define PLATFORM_GSTREAMER_PHOTO_ORPHAN_WATCH_H

#include <gst/gst.h>

// When the topmost bin around the element is disposed of and nobody but the watch holds its bus any
// more, the watch goes too. A second call for the same bin does nothing.
void removeOrphanWatch(GstElement* element);

#endif
