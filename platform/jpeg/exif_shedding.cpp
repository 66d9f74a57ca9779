#include "platform/jpeg/exif_shedding.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/jpeg/tiff.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint16_t kTagThumbnailOffset = 0x0201;
constexpr uint16_t kTagThumbnailLength = 0x0202;
constexpr uint16_t kTagGpsDirectory = 0x8825;
constexpr uint16_t kTagInteroperability = 0xA005;
constexpr uint16_t kTagMakerNote = 0x927C;
constexpr uint16_t kTagSubDirectories = 0x014A;  // further pictures; a photo's Exif has none
// More than a photo has. What points in circles, or to one directory over and over, ends there.
constexpr int kMostDirectories = 8;

bool pointsToDirectory(uint16_t tag) {
  return tag == kTagExifDirectory || tag == kTagGpsDirectory || tag == kTagInteroperability;
}

// 0: unknown.
size_t bytesOfType(uint16_t type) {
  static constexpr size_t kBytes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
  return type < std::size(kBytes) ? kBytes[type] : 0;
}

struct Range {
  size_t begin;
  size_t end;
};

// One entry: where it stands, and where its value does.
struct Entry {
  uint16_t tag;
  size_t at;
  Range value;
};

// The entries of a directory; nothing if it or a value of it reaches out of the structure.
std::optional<std::vector<Entry>> entriesOf(const Tiff& tiff, size_t directory) {
  if (directory < kTiffHeaderBytes || !tiff.holds(directory, 2)) return std::nullopt;
  const size_t count = tiff.u16(directory);
  if (!tiff.holds(directory + 2, count * kTiffEntryBytes + 4)) return std::nullopt;
  std::vector<Entry> entries;
  for (size_t i = 0; i < count; ++i) {
    const size_t at = directory + 2 + i * kTiffEntryBytes;
    const uint64_t bytes = uint64_t{bytesOfType(tiff.u16(at + 2))} * tiff.u32(at + 4);
    const size_t value = bytes <= 4 ? at + 8 : tiff.u32(at + 8);
    if (bytes > SIZE_MAX || !tiff.holds(value, static_cast<size_t>(bytes))) return std::nullopt;
    entries.push_back({tiff.u16(at), at, {value, value + static_cast<size_t>(bytes)}});
  }
  return entries;
}

Range directoryRange(const Tiff& tiff, size_t directory) {
  return {directory, directory + 2 + tiff.u16(directory) * kTiffEntryBytes + 4};
}

// All that a directory and those below it take; false if one is not understood.
bool addRanges(const Tiff& tiff, size_t directory, int* directoriesLeft,
               std::vector<Range>* ranges) {
  const auto entries = entriesOf(tiff, directory);
  if (!entries || --*directoriesLeft < 0) return false;
  ranges->push_back(directoryRange(tiff, directory));
  for (const Entry& entry : *entries) {
    ranges->push_back(entry.value);
    if (pointsToDirectory(entry.tag) &&
        !addRanges(tiff, tiff.u32(entry.at + 8), directoriesLeft, ranges)) {
      return false;
    }
  }
  return true;
}

size_t endOf(const std::vector<Range>& ranges) {
  size_t end = 0;
  for (const Range& range : ranges) {
    end = std::max(end, range.end);
  }
  return end;
}

// What the second directory takes, its picture among it.
bool addThumbnail(const Tiff& tiff, size_t directory, std::vector<Range>* ranges) {
  int directoriesLeft = kMostDirectories;
  if (!addRanges(tiff, directory, &directoriesLeft, ranges)) return false;
  const size_t offset = tiff.findEntry(directory, kTagThumbnailOffset);
  const size_t length = tiff.findEntry(directory, kTagThumbnailLength);
  if (offset == 0 || length == 0) return true;
  const size_t begin = tiff.u32(offset + 8);
  const size_t bytes = tiff.u32(length + 8);
  if (!tiff.holds(begin, bytes)) return false;
  ranges->push_back({begin, begin + bytes});
  return true;
}

// Whether all from there on lies in the ranges or is padding.
bool isSpare(const Bytes& tiff, size_t from, const std::vector<Range>& ranges) {
  Bytes rest(tiff.begin() + static_cast<ptrdiff_t>(from), tiff.end());
  for (const Range& range : ranges) {
    const size_t begin = std::max(range.begin, from) - from;
    const size_t end = std::max(range.end, from) - from;
    std::fill(rest.begin() + static_cast<ptrdiff_t>(begin),
              rest.begin() + static_cast<ptrdiff_t>(end), uint8_t{0});
  }
  return std::all_of(rest.begin(), rest.end(), [](uint8_t b) { return b == 0 || b == 0xFF; });
}

// Writes directories anew, in the byte order of the old structure, without the maker note and,
// where places are private, without the position.
class Rewriter {
 public:
  explicit Rewriter(Bytes* from, bool hides = false)
      : source(from->data(), from->size()), old(*from), made(*from), hidesPlaces(hides) {}

  // Returns the new structure, or none.
  std::optional<Bytes> rewrite() {
    if (!source.readByteOrder()) return std::nullopt;
    made.resize(kTiffHeaderBytes);
    const size_t directory = append(source.u32(4));
    if (directory == 0 || (!foundMakerNote && !hidesPlaces)) return std::nullopt;
    putU32(4, directory);
    return made;
  }

 private:
  // Returns the offset of the new directory, or 0.
  size_t append(size_t directory) {
    auto entries = entriesOf(source, directory);
    // A value that is told twice must not make the whole longer.
    if (!entries || --directoriesLeft < 0 || made.size() > old.size()) return 0;
    std::erase_if(*entries, [this](const Entry& entry) {
      foundMakerNote |= entry.tag == kTagMakerNote;
      return entry.tag == kTagMakerNote || entry.tag == kTagSubDirectories ||
             (hidesPlaces && entry.tag == kTagGpsDirectory);
    });
    const size_t at = made.size();
    made.resize(at + 2 + entries->size() * kTiffEntryBytes + 4);
    putU16(at, entries->size());
    for (size_t i = 0; i < entries->size(); ++i) {
      const Entry& entry = (*entries)[i];
      const size_t place = at + 2 + i * kTiffEntryBytes;
      std::copy_n(old.begin() + static_cast<ptrdiff_t>(entry.at), kTiffEntryBytes,
                  made.begin() + static_cast<ptrdiff_t>(place));
      if (pointsToDirectory(entry.tag)) {
        const size_t below = append(source.u32(entry.at + 8));
        if (below == 0) return 0;
        putU32(place + 8, below);
      } else if (entry.value.begin != entry.at + 8) {
        if (made.size() > old.size()) return 0;
        putU32(place + 8, made.size());
        made.insert(made.end(), old.begin() + static_cast<ptrdiff_t>(entry.value.begin),
                    old.begin() + static_cast<ptrdiff_t>(entry.value.end));
        if (made.size() % 2 != 0) made.push_back(0);
      }
    }
    return at;
  }
  void putU16(size_t at, size_t value) { target().putU16(at, static_cast<uint32_t>(value)); }
  void putU32(size_t at, size_t value) { target().putU32(at, static_cast<uint32_t>(value)); }
  Tiff target() {
    Tiff tiff(made.data(), made.size());
    tiff.readByteOrder();
    return tiff;
  }

  Tiff source;
  const Bytes old;
  Bytes made;
  const bool hidesPlaces;
  int directoriesLeft = kMostDirectories;
  bool foundMakerNote = false;
};

Bytes tiffOf(const Bytes& payload) {
  if (!isExifPayload(payload.data(), payload.size())) return {};
  return Bytes(payload.begin() + sizeof kExifSignature, payload.end());
}

bool replaceTiff(const Bytes& tiff, Bytes* payload) {
  if (sizeof kExifSignature + tiff.size() >= payload->size()) return false;
  payload->resize(sizeof kExifSignature);
  payload->insert(payload->end(), tiff.begin(), tiff.end());
  return true;
}

}  // namespace

bool dropExifThumbnail(std::vector<uint8_t>* payload) {
  Bytes bytes = tiffOf(*payload);
  Tiff tiff(bytes.data(), bytes.size());
  if (!tiff.readByteOrder()) return false;
  const size_t main = tiff.u32(4);
  std::vector<Range> kept;
  int directoriesLeft = kMostDirectories;
  if (!addRanges(tiff, main, &directoriesLeft, &kept)) return false;
  const size_t nextAt = directoryRange(tiff, main).end - 4;
  std::vector<Range> thumbnail;
  if (tiff.u32(nextAt) == 0 || !addThumbnail(tiff, tiff.u32(nextAt), &thumbnail)) return false;
  const size_t end = endOf(kept);
  if (!isSpare(bytes, end, thumbnail)) return false;
  tiff.putU32(nextAt, 0);
  bytes.resize(end);
  return replaceTiff(bytes, payload);
}

bool dropExifMakerNote(std::vector<uint8_t>* payload) {
  Bytes bytes = tiffOf(*payload);
  const auto made = Rewriter(&bytes).rewrite();
  return made && replaceTiff(*made, payload);
}

bool dropExifPlaces(std::vector<uint8_t>* payload) {
  Bytes bytes = tiffOf(*payload);
  const auto made = Rewriter(&bytes, true).rewrite();
  if (!made) return false;
  payload->resize(sizeof kExifSignature);
  payload->insert(payload->end(), made->begin(), made->end());
  return true;
}
