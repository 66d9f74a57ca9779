#include "fit/formats/vips_metadata.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "fit/metadata/exif_fields.h"
#include "platform/jpeg/jpeg_metadata.h"

namespace {

using namespace std::string_view_literals;

constexpr uint8_t kApp1 = 0xE1;
constexpr uint8_t kApp2 = 0xE2;
constexpr auto kExif = "Exif\0\0"sv;
constexpr auto kXmp = "http://ns.adobe.com/xap/1.0/\0"sv;
constexpr auto kProfile = "ICC_PROFILE\0"sv;
constexpr size_t kNumbering = 2;  // this part's number, from 1, and how many there are
constexpr size_t kMostProfileParts = 255;

std::string_view blobOf(VipsImage* image, const char* name) {
  const void* data = nullptr;
  size_t size = 0;
  if (vips_image_get_typeof(image, name) != VIPS_TYPE_BLOB ||
      vips_image_get_blob(image, name, &data, &size) != 0) {
    return {};
  }
  return {static_cast<const char*>(data), size};
}

void add(uint8_t marker, std::string_view start, std::string_view rest, Segments* segments) {
  if (rest.empty() || start.size() + rest.size() > kMaxSegmentPayload) return;
  JpegSegment& segment = segments->emplace_back();
  segment.marker = marker;
  segment.payload.assign(start.begin(), start.end());
  segment.payload.insert(segment.payload.end(), rest.begin(), rest.end());
}

void addProfile(std::string_view profile, Segments* segments) {
  constexpr size_t kPart = kMaxSegmentPayload - kProfile.size() - kNumbering;
  const size_t parts = (profile.size() + kPart - 1) / kPart;
  if (parts > kMostProfileParts) return;
  for (size_t i = 0; i < parts; ++i) {
    std::string start(kProfile);
    start += static_cast<char>(i + 1);
    start += static_cast<char>(parts);
    add(kApp2, start, profile.substr(i * kPart, kPart), segments);
  }
}

std::string_view payloadOf(const JpegSegment& segment, uint8_t marker, std::string_view start) {
  const std::string_view payload(reinterpret_cast<const char*>(segment.payload.data()),
                                 segment.payload.size());
  return segment.marker == marker && payload.starts_with(start) ? payload : std::string_view();
}

void putBlob(const char* name, std::string_view blob, VipsImage* image) {
  if (!blob.empty()) vips_image_set_blob_copy(image, name, blob.data(), blob.size());
}

}  // namespace

Segments metadataOf(VipsImage* image, int orientation) {
  Segments segments;
  std::string_view exif = blobOf(image, VIPS_META_EXIF_NAME);
  if (exif.starts_with(kExif)) exif.remove_prefix(kExif.size());
  add(kApp1, kExif, exif, &segments);
  if (!segments.empty() && orientation == 1) setExifUpright(&segments[0].payload);
  if (orientation != 1 &&
      (segments.empty() || exifOrientation(segments[0].payload) != orientation)) {
    segments = {{.marker = kApp1, .payload = exifOfOrientation(orientation)}};
  }
  add(kApp1, kXmp, blobOf(image, VIPS_META_XMP_NAME), &segments);
  addProfile(blobOf(image, VIPS_META_ICC_NAME), &segments);
  return segments;
}

void putMetadata(const Segments& segments, VipsImage* image) {
  std::string profile;
  for (const JpegSegment& segment : segments) {
    putBlob(VIPS_META_EXIF_NAME, payloadOf(segment, kApp1, kExif), image);
    std::string_view rest = payloadOf(segment, kApp1, kXmp);
    rest.remove_prefix(std::min(rest.size(), kXmp.size()));
    putBlob(VIPS_META_XMP_NAME, rest, image);
    rest = payloadOf(segment, kApp2, kProfile);
    rest.remove_prefix(std::min(rest.size(), kProfile.size() + kNumbering));
    profile += rest;
  }
  putBlob(VIPS_META_ICC_NAME, profile, image);
}
