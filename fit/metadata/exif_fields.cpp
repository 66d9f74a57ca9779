#include "fit/metadata/exif_fields.h"

#include "platform/jpeg/tiff.h"

namespace {

constexpr uint16_t kTagOrientation = 0x0112;

// The TIFF structure behind the signature; one that cannot be read holds nothing.
Tiff tiffOf(std::vector<uint8_t>* payload) {
  if (!isExifPayload(payload->data(), payload->size())) return {nullptr, 0};
  return {payload->data() + sizeof kExifSignature, payload->size() - sizeof kExifSignature};
}

}  // namespace

int exifOrientation(const std::vector<uint8_t>& payload) {
  std::vector<uint8_t> bytes = payload;
  Tiff tiff = tiffOf(&bytes);
  if (!tiff.readByteOrder()) return 1;
  const size_t entry = tiff.findEntry(tiff.u32(4), kTagOrientation);
  if (entry == 0 || tiff.u16(entry + 2) != kTypeShort) return 1;
  const int orientation = tiff.u16(entry + 8);
  return orientation >= 1 && orientation <= 8 ? orientation : 1;
}

void setExifUpright(std::vector<uint8_t>* payload) {
  Tiff tiff = tiffOf(payload);
  if (!tiff.readByteOrder()) return;
  const size_t directory = tiff.u32(4);
  tiff.setNumber(tiff.findEntry(directory, kTagOrientation), 1);
  if (directory < kTiffHeaderBytes || !tiff.holds(directory, 2)) return;
  const size_t next = directory + 2 + tiff.u16(directory) * kTiffEntryBytes;
  if (tiff.holds(next, 4)) tiff.putU32(next, 0);
}

std::vector<uint8_t> exifOfOrientation(int orientation) {
  std::vector<uint8_t> payload = {
      'E',  'x',  'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0, 0, 8,         // the directory is at 8
      0,    1,                                                         // of one entry
      0x01, 0x12, 0,   3,   0, 0, 0,   1,   0, 0,  0, 0, 0, 0, 0, 0};  // no other directory
  payload[25] = static_cast<uint8_t>(orientation);
  return payload;
}
