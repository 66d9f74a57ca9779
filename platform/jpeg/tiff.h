// The TIFF structure of an Exif segment (Exif 2.32, 4.5 and 4.6): directories of entries of 12
// bytes.
//
// Errors: an access names an offset that was checked with holds(); what is not there is told as 0.
#ifndef PLATFORM_JPEG_TIFF_H
#define PLATFORM_JPEG_TIFF_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

constexpr uint16_t kTagExifDirectory = 0x8769;
constexpr uint16_t kTypeText = 2;
constexpr uint16_t kTypeShort = 3;
constexpr uint16_t kTypeLong = 4;
constexpr uint16_t kTypeDirectory = 13;  // a LONG that says what it points to
constexpr size_t kTiffEntryBytes = 12;
constexpr size_t kTiffHeaderBytes = 8;

// What stands before the TIFF structure in the payload of an APP1 segment.
constexpr uint8_t kExifSignature[6] = {'E', 'x', 'i', 'f', 0, 0};

inline bool isExifPayload(const uint8_t* payload, size_t sizeBytes) {
  return sizeBytes >= sizeof kExifSignature &&
         memcmp(payload, kExifSignature, sizeof kExifSignature) == 0;
}

// Borrows the bytes.
class Tiff {
 public:
  Tiff(uint8_t* data, size_t dataBytes) : bytes(data), sizeBytes(dataBytes) {}

  bool readByteOrder() {
    if (!holds(0, kTiffHeaderBytes)) return false;
    bigEndian = bytes[0] == 'M';
    return (memcmp(bytes, "MM", 2) == 0 || memcmp(bytes, "II", 2) == 0) && u16(2) == 42;
  }
  bool holds(size_t offset, size_t count) const {
    return offset <= sizeBytes && count <= sizeBytes - offset;
  }
  uint16_t u16(size_t at) const {
    return static_cast<uint16_t>(bigEndian ? bytes[at] << 8 | bytes[at + 1]
                                           : bytes[at + 1] << 8 | bytes[at]);
  }
  uint32_t u32(size_t at) const {
    const uint32_t first = u16(at);
    const uint32_t second = u16(at + 2);
    return bigEndian ? first << 16 | second : second << 16 | first;
  }
  void putU16(size_t at, uint32_t value) {
    bytes[at + (bigEndian ? 0 : 1)] = static_cast<uint8_t>(value >> 8);
    bytes[at + (bigEndian ? 1 : 0)] = static_cast<uint8_t>(value);
  }
  void putU32(size_t at, uint32_t value) {
    putU16(at + (bigEndian ? 0 : 2), value >> 16);
    putU16(at + (bigEndian ? 2 : 0), value);
  }

  // The offset of the entry of one number with that tag, or 0 (the header's place, where no entry
  // is).
  size_t findEntry(size_t directory, uint16_t tag) const {
    return find(directory, [&](size_t entry) { return u16(entry) == tag && u32(entry + 4) == 1; });
  }
  // The text of that tag with whatever ends it, or "".
  std::string text(size_t directory, uint16_t tag) const {
    const size_t entry = find(directory, [&](size_t each) { return u16(each) == tag; });
    if (entry == 0 || u16(entry + 2) != kTypeText) return "";
    const size_t count = u32(entry + 4);
    const size_t at = count <= 4 ? entry + 8 : u32(entry + 8);
    return holds(at, count) ? std::string(bytes + at, bytes + at + count) : "";
  }
  bool setNumber(size_t entry, uint32_t value) {
    if (entry == 0) return false;
    const uint16_t type = u16(entry + 2);
    if (type == kTypeLong) {
      putU32(entry + 8, value);
    } else if (type == kTypeShort && value <= UINT16_MAX) {
      putU16(entry + 8, value);
    } else {
      return false;
    }
    return true;
  }

 private:
  template <typename IsWanted>
  size_t find(size_t directory, const IsWanted& isWanted) const {
    if (directory < kTiffHeaderBytes || !holds(directory, 2)) return 0;
    const size_t count = u16(directory);
    if (!holds(directory + 2, count * kTiffEntryBytes)) return 0;
    for (size_t i = 0; i < count; ++i) {
      const size_t entry = directory + 2 + i * kTiffEntryBytes;
      if (isWanted(entry)) return entry;
    }
    return 0;
  }

  uint8_t* bytes;
  size_t sizeBytes;
  bool bigEndian = false;
};

#endif
