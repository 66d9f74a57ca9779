// The entry of the plug-in "tarnphoto".
#include <cstring>

#include "platform/gstreamer/photo/elements.h"
#include "platform/gstreamer/photo/metadata_tag.h"

static constexpr char kPluginName[] = "tarnphoto";

#ifndef PACKAGE
#define PACKAGE "tarn-transcode"
#endif

// GStreamer's own plug-ins of JPEG and of core elements, other parts of which are in use, have
// elements of these names too, and of two features with one name the one registered last stays.
// They register theirs whenever they are looked at or loaded; ours follow at once.
static constexpr struct {
  const char* name;
  bool (*registerOurs)(GstPlugin*);
} kTaken[] = {{kJpegDecName, registerJpegDec}, {kFileSinkName, registerFileSink}};

static void takeNameBack(GstRegistry*, GstPluginFeature* feature, gpointer plugin) {
  // A program's own elements are of no plug-in.
  if (g_strcmp0(gst_plugin_feature_get_plugin_name(feature), kPluginName) == 0) return;
  for (const auto& [name, registerOurs] : kTaken) {
    if (strcmp(gst_plugin_feature_get_name(feature), name) == 0) {
      registerOurs(static_cast<GstPlugin*>(plugin));
    }
  }
}

static gboolean registerElements(GstPlugin* plugin) {
  g_signal_connect(gst_registry_get(), "feature-added", G_CALLBACK(takeNameBack), plugin);
  // When one of those files changes and is looked at again, so is this one. The launcher tells in
  // the variable where they are.
  gst_plugin_add_dependency_simple(plugin, "TARN_PLUGINS", GST_PLUGINS_DIR,
                                   "libgstjpeg.so,libgstcoreelements.so",
                                   GST_PLUGIN_DEPENDENCY_FLAG_NONE);
  registerMetadataTag();
  return registerMetadataDemux(plugin) && registerMetadataMux(plugin) && registerJpegDec(plugin) &&
         registerVideoScale(plugin) && registerFileSink(plugin);
}

// The macro casts const away.
#pragma GCC diagnostic ignored "-Wcast-qual"
// The licence text has to be one of GStreamer's own list, which has a blank where SPDX has a dash.
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tarnphoto,
                  "Elements of the transcoding service's photos", registerElements, TARN_VERSION,
                  "Apache 2.0", "tarn-transcode", "com.tarn.transcode")
