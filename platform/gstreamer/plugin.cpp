// The entry of the plug-in "tarntranscode".
#include "platform/gstreamer/elements.h"
#include "platform/gstreamer/metadata_tag.h"
#include "platform/gstreamer/movie_elements.h"

#ifndef PACKAGE
#define PACKAGE "tarn-transcode"
#endif

static gboolean registerElements(GstPlugin* plugin) {
  registerMetadataTag();
  return registerMetadataDemux(plugin) && registerMetadataMux(plugin) &&
         registerVideoScale(plugin) && registerDecodeBin2(plugin) && registerVideoEncoder(plugin) &&
         registerAudioEncoder(plugin) && registerMpeg4Mux(plugin) && registerBareDemuxers(plugin);
}

// The macro casts const away.
#pragma GCC diagnostic ignored "-Wcast-qual"
// The licence text has to be one of GStreamer's own list, which has a blank where SPDX has a dash.
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tarntranscode,
                  "Elements of the transcoding service", registerElements, TARN_VERSION,
                  "Apache 2.0", "tarn-transcode", "com.tarn.transcode")
