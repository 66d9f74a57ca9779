#include "platform/jpeg/jpeg_metadata.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/jpeg/exif_dimensions.h"
#include "platform/jpeg/exif_shedding.h"

namespace {

using namespace std::string_view_literals;

constexpr uint8_t kMarkerApp1 = 0xE1;
constexpr uint8_t kMarkerApp2 = 0xE2;
constexpr uint8_t kMarkerApp14 = 0xEE;

bool isNamed(const JpegSegment& segment, uint8_t marker, std::string_view name) {
  return segment.marker == marker && segment.payload.size() >= name.size() &&
         memcmp(segment.payload.data(), name.data(), name.size()) == 0;
}

// JFIF and its extension, which is nothing without it.
bool isJfif(const JpegSegment& segment) {
  return isNamed(segment, kMarkerApp0, "JFIF\0"sv) || isNamed(segment, kMarkerApp0, "JFXX\0"sv);
}

// The offset behind the JFIF segments that a picture begins with.
size_t skipJfif(const std::vector<JpegSegment>& segments) {
  size_t at = 2;
  for (const JpegSegment& segment : segments) {
    if (!isJfif(segment)) break;
    at = segment.endOffset;
  }
  return at;
}

bool isExtendedXmp(const JpegSegment& segment) {
  return isNamed(segment, kMarkerApp1, "http://ns.adobe.com/xmp/extension/\0"sv);
}

size_t bytesOf(const std::vector<JpegSegment>& metadata) {
  size_t bytes = 0;
  for (const JpegSegment& segment : metadata) {
    bytes += 4 + segment.payload.size();
  }
  return bytes;
}

// Returns whether anything went.
bool shed(JpegShedding part, std::vector<JpegSegment>* metadata) {
  if (part == ShedExtendedXmp) return std::erase_if(*metadata, isExtendedXmp) > 0;
  const auto drop = part == ShedThumbnail ? dropExifThumbnail : dropExifMakerNote;
  bool isShorter = false;
  for (JpegSegment& segment : *metadata) {
    isShorter |= isExif(segment) && drop(&segment.payload);
  }
  return isShorter;
}

void append(const JpegSegment& segment, JpegHead* head) {
  if (segment.payload.size() > kMaxSegmentPayload) {
    ++head->leftOut;
    return;
  }
  const size_t length = segment.payload.size() + 2;
  const uint8_t start[] = {0xFF, segment.marker, static_cast<uint8_t>(length >> 8),
                           static_cast<uint8_t>(length)};
  head->bytes.insert(head->bytes.end(), start, start + sizeof start);
  head->bytes.insert(head->bytes.end(), segment.payload.begin(), segment.payload.end());
}

}  // namespace

bool isExif(const JpegSegment& segment) {
  return isNamed(segment, kMarkerApp1, "Exif\0"sv);
}

bool isJpegMetadata(const JpegSegment& segment) {
  return !isNamed(segment, kMarkerApp14, "Adobe"sv) && !isNamed(segment, kMarkerApp0, "AVI1"sv) &&
         !isNamed(segment, kMarkerApp2, "MPF\0"sv);
}

unsigned shedJpegMetadata(size_t pictureBytes, std::vector<JpegSegment>* metadata) {
  unsigned gone = ShedNothing;
  for (const JpegShedding part : {ShedThumbnail, ShedExtendedXmp, ShedMakerNote}) {
    if (bytesOf(*metadata) > pictureBytes && shed(part, metadata)) gone |= part;
  }
  return gone;
}

bool makeJpegHead(const uint8_t* encoded, size_t sizeBytes,
                  const std::vector<JpegSegment>& metadata, JpegHead* head) {
  JpegHeaderReader reader;
  if (reader.feed(encoded, sizeBytes) != JpegHeaderReader::Status::Complete) return false;

  JpegHead made;
  made.restOffset = skipJfif(reader.segments());
  made.bytes = {0xFF, kMarkerSoi};
  const auto tellsDensity = [](const JpegSegment& segment) {
    return isJfif(segment) || isExif(segment);
  };
  if (std::none_of(metadata.begin(), metadata.end(), tellsDensity)) {
    made.bytes.assign(encoded, encoded + made.restOffset);
  }
  for (const JpegSegment& segment : metadata) {
    if (isJfif(segment)) append(segment, &made);
  }
  bool exifSeen = false;
  for (const JpegSegment& segment : metadata) {
    if (isJfif(segment)) continue;
    const size_t at = made.bytes.size() + 4;  // of its payload
    append(segment, &made);
    if (isExif(segment) && !std::exchange(exifSeen, true) && at <= made.bytes.size()) {
      setExifDimensions(made.bytes.data() + at, made.bytes.size() - at, reader.width(),
                        reader.height());
    }
  }
  *head = std::move(made);
  return true;
}
