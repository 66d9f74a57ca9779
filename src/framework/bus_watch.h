// What the watch of a pipeline's bus does with a message: log it, and end the loop at the end.
#ifndef SRC_FRAMEWORK_BUS_WATCH_H
#define SRC_FRAMEWORK_BUS_WATCH_H

#include <gst/gst.h>

// Logs the message under the watch's own signature and quits the loop at the end of the stream and
// at an error, which is logged too; the two are not told apart. All other messages pass. Always
// returns TRUE: the watch stays.
gboolean watchBusMessage(const char* signature, GstMessage* message, GMainLoop* loop);

#endif
