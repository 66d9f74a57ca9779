#include "fit/metadata/photo_metadata.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "fit/metadata/exif_fields.h"
#include "platform/jpeg/exif_shedding.h"
#include "platform/jpeg/jpeg_metadata.h"

namespace {

using namespace std::string_view_literals;

bool isNamed(const JpegSegment& segment, uint8_t marker, std::string_view name) {
  return segment.marker == marker && segment.payload.size() >= name.size() &&
         memcmp(segment.payload.data(), name.data(), name.size()) == 0;
}

bool isProfile(const JpegSegment& segment) {
  return isNamed(segment, 0xE2, "ICC_PROFILE\0"sv);
}

bool isJfif(const JpegSegment& segment) {
  return isNamed(segment, kMarkerApp0, "JFIF\0"sv);
}

bool isXmp(const JpegSegment& segment) {
  return isNamed(segment, 0xE1, "http://ns.adobe.com/xap/1.0/\0"sv);
}

bool isExtendedXmp(const JpegSegment& segment) {
  return isNamed(segment, 0xE1, "http://ns.adobe.com/xmp/extension/\0"sv);
}

// Of the same length, so that nothing moves.
void setXmpUpright(JpegSegment* xmp) {
  std::string_view text(reinterpret_cast<const char*>(xmp->payload.data()), xmp->payload.size());
  for (const auto name : {"tiff:Orientation=\""sv, "tiff:Orientation='"sv, "tiff:Orientation>"sv}) {
    const size_t at = text.find(name);
    if (at == text.npos || at + name.size() >= text.size()) continue;
    uint8_t& digit = xmp->payload[at + name.size()];
    if (digit >= '1' && digit <= '8') digit = '1';
  }
}

// Each part of the metadata, on its way into a new file. Returns whether it goes along.
bool keepPart(KeepMetadata keep, Shed shed, JpegSegment* segment) {
  if (!isJpegMetadata(*segment) || shed >= Shed::Everything) return false;
  if (isProfile(*segment) || isJfif(*segment)) return true;
  if (shed >= Shed::AllButProfile || keep == KeepMetadata::None) return false;
  if (isExif(*segment)) {
    if (keep == KeepMetadata::NoLocation) return dropExifPlaces(&segment->payload);
    if (shed >= Shed::Thumbnail) dropExifThumbnail(&segment->payload);
    if (shed >= Shed::Extras) dropExifMakerNote(&segment->payload);
    return true;
  }
  if (keep == KeepMetadata::NoLocation || shed >= Shed::AllButExif) return false;
  return shed < Shed::Extras || !isExtendedXmp(*segment);
}

// One segment behind another in a file.
struct Piece {
  uint8_t marker = 0;
  size_t begin = 0;
  size_t end = 0;  // of marker, length and payload
};

// False at the end of the file.
bool pieceAt(std::span<const uint8_t> file, size_t at, Piece* piece) {
  while (at < file.size() && file[at] != 0xFF) {
    ++at;
  }
  piece->begin = at;
  while (at < file.size() && file[at] == 0xFF) {
    ++at;
  }
  if (at >= file.size()) return false;
  piece->marker = file[at];
  piece->end = at + 1;
  const bool standsAlone =
      piece->marker == 0x01 || (piece->marker >= 0xD0 && piece->marker <= 0xD9);
  if (standsAlone || piece->marker == 0) return true;
  if (at + 2 >= file.size()) return false;
  const size_t length = static_cast<size_t>(file[at + 1]) << 8 | file[at + 2];
  piece->end += length;
  return length >= 2 && piece->end <= file.size();
}

bool mayBeMetadata(uint8_t marker) {
  return (marker >= kMarkerApp0 && marker <= kMarkerApp15) || marker == kMarkerCom;
}

// What tells how the picture is coded stays with it.
bool isCoding(uint8_t marker, std::span<const uint8_t> whole) {
  constexpr auto kAdobe = "Adobe"sv;
  if (marker == 0xEE) {
    return whole.size() >= 4 + kAdobe.size() &&
           memcmp(&whole[4], kAdobe.data(), kAdobe.size()) == 0;
  }
  return whole.size() > 2 && !mayBeMetadata(marker);
}

// Behind the picture's end marker; 0 when there is none, or metadata between the scans.
size_t endOfPicture(std::span<const uint8_t> file, size_t firstScan) {
  Piece piece;
  for (size_t at = firstScan; pieceAt(file, at, &piece); at = piece.end) {
    if (piece.marker == kMarkerEoi) return piece.end;
    if (mayBeMetadata(piece.marker)) return 0;
  }
  return 0;
}

void append(std::span<const uint8_t> bytes, std::vector<uint8_t>* made) {
  made->insert(made->end(), bytes.begin(), bytes.end());
}

}  // namespace

PhotoMetadata::PhotoMetadata(Segments segments) : all(std::move(segments)) {}

int PhotoMetadata::orientation() const {
  const auto exif = std::find_if(all.begin(), all.end(), isExif);
  return exif == all.end() ? 1 : exifOrientation(exif->payload);
}

size_t PhotoMetadata::bytes() const {
  return bytesOf(all);
}

void PhotoMetadata::dropProfile() {
  std::erase_if(all, isProfile);
}

Segments PhotoMetadata::kept(KeepMetadata keep, Shed shed) const {
  Segments made;
  bool tellsOrientation = false;
  for (JpegSegment segment : all) {
    if (!keepPart(keep, shed, &segment)) continue;
    tellsOrientation |= isExif(segment) && exifOrientation(segment.payload) == orientation();
    made.push_back(std::move(segment));
  }
  if (orientation() != 1 && !tellsOrientation) {
    made.insert(made.begin(), {.marker = 0xE1, .payload = exifOfOrientation(orientation())});
  }
  return made;
}

Segments PhotoMetadata::keptUpright(KeepMetadata keep, Shed shed) const {
  Segments made;
  for (JpegSegment segment : all) {
    if (!keepPart(keep, std::max(shed, Shed::Thumbnail), &segment)) continue;
    if (isExif(segment)) setExifUpright(&segment.payload);
    if (isXmp(segment)) setXmpUpright(&segment);
    made.push_back(std::move(segment));
  }
  return made;
}

size_t bytesOf(const Segments& segments) {
  size_t bytes = 0;
  for (const JpegSegment& segment : segments) {
    bytes += 4 + segment.payload.size();
  }
  return bytes;
}

std::vector<uint8_t> withMetadata(std::span<const uint8_t> file, const Segments& segments) {
  std::vector<uint8_t> made = {0xFF, kMarkerSoi};
  for (const JpegSegment& segment : segments) {
    const size_t length = segment.payload.size() + 2;
    made.insert(made.end(), {0xFF, segment.marker, static_cast<uint8_t>(length >> 8),
                             static_cast<uint8_t>(length)});
    append(segment.payload, &made);
  }
  Piece piece;
  for (size_t at = 2; pieceAt(file, at, &piece); at = piece.end) {
    if (piece.marker == kMarkerSos) {
      const size_t end = endOfPicture(file, piece.begin);
      if (end == 0) return {};
      append(file.subspan(piece.begin, end - piece.begin), &made);
      return made;
    }
    const auto payload = file.subspan(piece.begin, piece.end - piece.begin);
    if (isCoding(piece.marker, payload)) append(payload, &made);
  }
  return {};
}
