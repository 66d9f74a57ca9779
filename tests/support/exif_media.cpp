// The Exif segment, written directory by directory.
#include <algorithm>
#include <string_view>

#include "tests/support/jpeg_media.h"

namespace {

enum Type : uint16_t { Byte = 1, Ascii = 2, Short = 3, Long = 4, Rational = 5, Undefined = 7 };

struct Entry {
  uint16_t tag;
  Type type;
  uint32_t count;
  Bytes value;  // at most four bytes stand in the entry, more behind the directory
};

class TiffWriter {
 public:
  explicit TiffWriter(bool isBigEndian) : bigEndian(isBigEndian) {}

  Bytes u16(uint32_t value) const {
    Bytes bytes = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
    if (bigEndian) std::reverse(bytes.begin(), bytes.end());
    return bytes;
  }
  Bytes u32(uint32_t value) const {
    Bytes bytes = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                   static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
    if (bigEndian) std::reverse(bytes.begin(), bytes.end());
    return bytes;
  }
  Entry text(uint16_t tag, std::string_view value) const {
    Bytes bytes(value.begin(), value.end());
    bytes.push_back(0);
    return {tag, Ascii, static_cast<uint32_t>(bytes.size()), bytes};
  }
  Entry number(uint16_t tag, uint32_t value) const { return {tag, Long, 1, u32(value)}; }
  Entry shortNumber(uint16_t tag, uint32_t value) const { return {tag, Short, 1, u16(value)}; }
  // Each number over 100.
  Entry hundredths(uint16_t tag, const std::vector<uint32_t>& values) const {
    Entry entry{tag, Rational, static_cast<uint32_t>(values.size()), {}};
    for (uint32_t value : values) {
      append(&entry.value, u32(value));
      append(&entry.value, u32(100));
    }
    return entry;
  }

  // Bytes of a directory that starts at the offset, its values behind it.
  Bytes directory(uint32_t offset, const std::vector<Entry>& entries, uint32_t next) const {
    Bytes table = u16(static_cast<uint32_t>(entries.size()));
    Bytes values;
    const uint32_t valuesAt = offset + 2 + 12 * static_cast<uint32_t>(entries.size()) + 4;
    for (const Entry& entry : entries) {
      append(&table, u16(entry.tag));
      append(&table, u16(entry.type));
      append(&table, u32(entry.count));
      Bytes field = entry.value;
      if (field.size() > 4) {
        field = u32(valuesAt + static_cast<uint32_t>(values.size()));
        append(&values, entry.value);
        if (values.size() % 2 != 0) values.push_back(0);
      }
      field.resize(4);
      append(&table, field);
    }
    append(&table, u32(next));
    append(&table, values);
    return table;
  }

  static void append(Bytes* to, const Bytes& more) {
    to->insert(to->end(), more.begin(), more.end());
  }

 private:
  bool bigEndian;
};

std::vector<Entry> exifEntries(const TiffWriter& tiff, const ExifRecipe& recipe, int width,
                               int height) {
  std::vector<Entry> entries = {
      tiff.hundredths(0x829A, {4}),   // ExposureTime 1/25 s
      tiff.shortNumber(0x8827, 320),  // ISO
      {0x9000, Undefined, 4, {'0', '2', '3', '0'}},
      tiff.text(0x9003, "2020:02:03 04:05:06"),  // DateTimeOriginal
  };
  if (recipe.makerNoteBytes > 0) {
    static constexpr std::string_view kStart = "TESTNOTE";
    Bytes note(std::max(recipe.makerNoteBytes, kStart.size()));
    for (size_t i = 0; i < note.size(); ++i) {
      note[i] = i < kStart.size() ? static_cast<uint8_t>(kStart[i]) : static_cast<uint8_t>(i * 7);
    }
    entries.push_back({0x927C, Undefined, static_cast<uint32_t>(note.size()), note});
  }
  const auto dimension = [&](uint16_t tag, int value) {
    const auto pixels = static_cast<uint32_t>(value);
    return recipe.shortDimensions ? tiff.shortNumber(tag, pixels) : tiff.number(tag, pixels);
  };
  entries.push_back(dimension(0xA002, width));
  entries.push_back(dimension(0xA003, height));
  return entries;
}

std::vector<Entry> gpsEntries(const TiffWriter& tiff) {
  return {
      {0x0000, Byte, 4, {2, 3, 0, 0}},
      tiff.text(0x0001, "N"),
      tiff.hundredths(0x0002, {5200, 3100, 1234}),
      tiff.text(0x0003, "E"),
      tiff.hundredths(0x0004, {1300, 2400, 4321}),
  };
}

Bytes makeThumbnail() {
  JpegRecipe recipe;
  recipe.width = 32;
  recipe.height = 24;
  recipe.quality = 50;
  recipe.jfif = false;
  return makeJpeg(recipe);
}

}  // namespace

Bytes makeExif(const ExifRecipe& recipe, int width, int height) {
  const TiffWriter tiff(recipe.bigEndian);
  // The main directory comes first but points to the others: it is laid out once to learn its
  // size, then again with the offsets.
  const auto mainEntries = [&](uint32_t exifAt, uint32_t gpsAt) {
    std::vector<Entry> entries = {
        tiff.text(0x010F, "Tarn"),
        tiff.text(0x0110, "Test camera"),
        tiff.shortNumber(0x0112, static_cast<uint32_t>(recipe.orientation)),
        tiff.hundredths(0x011A, {7200}),
        tiff.hundredths(0x011B, {7200}),
        tiff.shortNumber(0x0128, 2),
        tiff.number(0x8769, exifAt),
    };
    if (recipe.gps) entries.push_back(tiff.number(0x8825, gpsAt));
    return entries;
  };
  constexpr uint32_t kMainAt = 8;
  const auto sizeOf = [](const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); };

  const uint32_t exifAt = kMainAt + sizeOf(tiff.directory(kMainAt, mainEntries(0, 0), 0));
  const Bytes exif = tiff.directory(exifAt, exifEntries(tiff, recipe, width, height), 0);
  const uint32_t gpsAt = exifAt + sizeOf(exif);
  const Bytes gps = recipe.gps ? tiff.directory(gpsAt, gpsEntries(tiff), 0) : Bytes();
  const uint32_t secondAt = recipe.thumbnail ? gpsAt + sizeOf(gps) : 0;

  Bytes payload = {'E', 'x', 'i', 'f', 0, 0};
  const Bytes order = recipe.bigEndian ? Bytes{'M', 'M'} : Bytes{'I', 'I'};
  for (const Bytes& part :
       {order, tiff.u16(42), tiff.u32(kMainAt),
        tiff.directory(kMainAt, mainEntries(exifAt, gpsAt), secondAt), exif, gps}) {
    TiffWriter::append(&payload, part);
  }
  if (recipe.thumbnail) {
    const Bytes picture = makeThumbnail();
    constexpr uint32_t kEntries = 3;
    const uint32_t pictureAt = secondAt + 2 + 12 * kEntries + 4;
    TiffWriter::append(&payload,
                       tiff.directory(secondAt,
                                      {tiff.shortNumber(0x0103, 6), tiff.number(0x0201, pictureAt),
                                       tiff.number(0x0202, sizeOf(picture))},
                                      0));
    TiffWriter::append(&payload, picture);
  }
  return payload;
}
