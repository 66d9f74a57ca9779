#include "platform/jpeg/exif_dimensions.h"

#include "platform/jpeg/tiff.h"

namespace {

constexpr uint16_t kTagPixelXDimension = 0xA002;
constexpr uint16_t kTagPixelYDimension = 0xA003;

}  // namespace

bool setExifDimensions(uint8_t* payload, size_t sizeBytes, uint32_t width, uint32_t height) {
  if (!isExifPayload(payload, sizeBytes)) return false;
  Tiff tiff(payload + sizeof kExifSignature, sizeBytes - sizeof kExifSignature);
  if (!tiff.readByteOrder()) return false;

  // Two directories are visited, each once: a structure that points in circles ends here too.
  const size_t mainDirectory = tiff.u32(4);
  const size_t pointer = tiff.findEntry(mainDirectory, kTagExifDirectory);
  if (pointer == 0) return false;
  const uint16_t pointerType = tiff.u16(pointer + 2);
  if (pointerType != kTypeLong && pointerType != kTypeDirectory) return false;
  const size_t exifDirectory = tiff.u32(pointer + 8);
  if (exifDirectory == mainDirectory) return false;

  const size_t xEntry = tiff.findEntry(exifDirectory, kTagPixelXDimension);
  const size_t yEntry = tiff.findEntry(exifDirectory, kTagPixelYDimension);
  const bool xSet = tiff.setNumber(xEntry, width);
  const bool ySet = tiff.setNumber(yEntry, height);
  return xSet || ySet;
}
