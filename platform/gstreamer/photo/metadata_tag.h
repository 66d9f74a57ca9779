// The tag in which the metadata of a JPEG picture travels past the decoder and the encoder.
//
// Its value is a GstSample with a list of buffers, one per segment: the marker byte, then the
// payload. Elements in between neither know nor change it.
#ifndef PLATFORM_GSTREAMER_PHOTO_METADATA_TAG_H
#define PLATFORM_GSTREAMER_PHOTO_METADATA_TAG_H

#include <gst/gst.h>

#include <vector>

#include "platform/jpeg/jpeg_segments.h"

#define METADATA_TAG "tarn-jpeg-segments"

// Makes the tag known; to be called once before the others.
void registerMetadataTag();

// A new list of GLOBAL scope that holds the segments: decoders and encoders pass that scope on
// untouched, while they rewrite tags of STREAM scope. The caller owns it.
GstTagList* makeMetadataTags(const std::vector<JpegSegment>& segments);

// Stores the segments of a list that has the tag; returns false and leaves them if it has not.
bool readMetadataTags(const GstTagList* tags, std::vector<JpegSegment>* segments);

#endif
