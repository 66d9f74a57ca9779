// The entry of the plug-in "tarnphoto".
#include "platform/gstreamer/photo/elements.h"
#include "platform/gstreamer/photo/metadata_tag.h"

#ifndef PACKAGE
#define PACKAGE "tarn-transcode"
#endif

static gboolean registerElements(GstPlugin* plugin) {
  registerMetadataTag();
  return registerMetadataDemux(plugin) && registerMetadataMux(plugin) && registerVideoScale(plugin);
}

// The macro casts const away.
#pragma GCC diagnostic ignored "-Wcast-qual"
// The licence text has to be one of GStreamer's own list, which has a blank where SPDX has a dash.
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tarnphoto,
                  "Elements of the transcoding service's photos", registerElements, TARN_VERSION,
                  "Apache 2.0", "tarn-transcode", "com.tarn.transcode")
