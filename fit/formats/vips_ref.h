// Owners of libvips' objects.
#ifndef FIT_FORMATS_VIPS_REF_H
#define FIT_FORMATS_VIPS_REF_H

#include <vips/vips.h>

#include <memory>
#include <string>

struct VipsUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
using ImageRef = std::unique_ptr<VipsImage, VipsUnref>;
using RegionRef = std::unique_ptr<VipsRegion, VipsUnref>;

struct BlobUnref {
  void operator()(VipsBlob* blob) const { vips_area_unref(VIPS_AREA(blob)); }
};
using BlobRef = std::unique_ptr<VipsBlob, BlobUnref>;

// The first line of what libvips says of its last failure, which it then forgets.
std::string takeVipsError();

#endif
