// Fuzzes all that reads the bytes of a picture's header: cut into pieces, put before a picture,
// its Exif changed in place.
#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "platform/jpeg/exif_dimensions.h"
#include "platform/jpeg/jpeg_metadata.h"
#include "platform/jpeg/jpeg_segments.h"

static void check(bool holds) {
  if (!holds) abort();
}

static void fuzzExif(const uint8_t* data, size_t sizeBytes) {
  std::vector<uint8_t> exif = {'E', 'x', 'i', 'f', 0, 0};
  exif.insert(exif.end(), data, data + sizeBytes);
  const std::vector<uint8_t> before = exif;
  const bool set = setExifDimensions(exif.data(), exif.size(), 1008, 752);
  size_t changed = 0;
  for (size_t i = 0; i < exif.size(); ++i) {
    changed += exif[i] != before[i] ? 1 : 0;
  }
  check(changed <= (set ? 8u : 0u));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t sizeBytes) {
  if (sizeBytes == 0) return 0;
  const size_t split = (sizeBytes - 1) * data[0] / 255;
  ++data;
  --sizeBytes;

  JpegHeaderReader whole;
  whole.feed(data, sizeBytes);
  JpegHeaderReader pieces;
  pieces.feed(data, split);
  pieces.feed(data + split, sizeBytes - split);
  check(whole.status() == pieces.status());
  check(whole.segments().size() == pieces.segments().size());

  std::vector<JpegSegment> metadata;
  std::copy_if(whole.segments().begin(), whole.segments().end(), std::back_inserter(metadata),
               isJpegMetadata);
  JpegHead head;
  if (makeJpegHead(data, sizeBytes, metadata, &head)) {
    check(head.restOffset <= sizeBytes);
    // What was written is a header again, with all that was meant to be in it.
    JpegHeaderReader again;
    again.feed(head.bytes.data(), head.bytes.size());
    check(again.status() == JpegHeaderReader::Status::NeedsMore);
    check(again.segments().size() <= whole.segments().size() + 2);
  }
  fuzzExif(data, sizeBytes);
  return 0;
}
