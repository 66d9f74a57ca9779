// A photo's metadata, from how libvips tells it to the segments of a JPEG and back.
#ifndef FIT_FORMATS_VIPS_METADATA_H
#define FIT_FORMATS_VIPS_METADATA_H

#include <vips/vips.h>

#include "fit/metadata/photo_metadata.h"

// Exif, XMP and the colour profile; what is too long for its segment is left out. The orientation
// is the one that the decoded picture still needs.
Segments metadataOf(VipsImage* image, int orientation);
void putMetadata(const Segments& segments, VipsImage* image);

#endif
