// The elements of the plug-in. Each file of an element offers one function that registers it; the
// entry of the plug-in calls them all.
//
// Errors: false if GStreamer refuses the element; the plug-in is then not loaded.
#ifndef PLATFORM_GSTREAMER_PHOTO_ELEMENTS_H
#define PLATFORM_GSTREAMER_PHOTO_ELEMENTS_H

#include <gst/gst.h>

// "metadatademux": reads the metadata of a JPEG picture and passes the picture on.
bool registerMetadataDemux(GstPlugin* plugin);
// "metadatamux": writes that metadata into the picture's new encoding.
bool registerMetadataMux(GstPlugin* plugin);
// "jpegdec": decodes a JPEG picture into the size that downstream would rather have.
constexpr char kJpegDecName[] = "jpegdec";
bool registerJpegDec(GstPlugin* plugin);
// "filesink": puts whole pictures into a file.
constexpr char kFileSinkName[] = "filesink";
bool registerFileSink(GstPlugin* plugin);
// "videoscale": makes the picture another size.
bool registerVideoScale(GstPlugin* plugin);

#endif
