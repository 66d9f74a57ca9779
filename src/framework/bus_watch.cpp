#include "src/framework/bus_watch.h"

#include <cstdio>

namespace {

void logError(GstMessage* message) {
  GError* error = nullptr;
  gchar* debug = nullptr;
  gst_message_parse_error(message, &error, &debug);
  g_message("Error: %s\n", error->message);
  g_error_free(error);
  if (debug != nullptr) {
    g_message("Debug details: %s\n", debug);
    g_free(debug);
  }
}

}  // namespace

gboolean watchBusMessage(const char* signature, GstMessage* message, GMainLoop* loop) {
  g_message("+ %s MESSAGE TYPE %s\n", signature, GST_MESSAGE_TYPE_NAME(message));
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_EOS:
      printf("End-of-stream\n");
      g_main_loop_quit(loop);
      break;
    case GST_MESSAGE_ERROR:
      logError(message);
      g_main_loop_quit(loop);
      break;
    default:
      break;
  }
  g_message("- %s\n", signature);
  return TRUE;
}
