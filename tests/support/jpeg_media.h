// Makes JPEG pictures for tests, through libjpeg, with whatever metadata a camera leaves.
//
// Errors: a recipe that libjpeg refuses ends the test program with its message.
#ifndef TESTS_SUPPORT_JPEG_MEDIA_H
#define TESTS_SUPPORT_JPEG_MEDIA_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

struct ExifRecipe {
  bool bigEndian = false;        // "MM" instead of "II"
  bool shortDimensions = false;  // the two pixel dimensions as SHORT instead of LONG
  int orientation = 1;
  bool gps = false;
  size_t makerNoteBytes = 0;  // 0: none; starts with "TESTNOTE"
  bool thumbnail = false;     // a whole small JPEG picture in the second directory
};

enum class Subsampling { Gray, S444, S422, S420, S440, S411, S410 };

// How the colours are told. Inverted is as Adobe's programs do it: how much light an ink leaves.
enum class Colours { YCbCr, Rgb, CmykInverted, CmykPlain, YcckInverted };

// Smooth compresses well; noise hardly at all, and is the same for the same size.
enum class Content { Gradient, Noise };

struct JpegRecipe {
  int width = 64;
  int height = 48;
  int quality = 90;
  Subsampling subsampling = Subsampling::S420;
  Content content = Content::Gradient;
  Colours colours = Colours::YCbCr;
  bool progressive = false;
  bool arithmetic = false;
  bool separateScans = false;  // one for each component, of a picture that is not progressive
  int restartRows = 0;         // a restart marker after so many rows of blocks; 0: none
  bool jfif = true;
  int density = 72;  // dots per inch, in the JFIF segment
  std::optional<ExifRecipe> exif = {};
  std::string xmp = {};          // the packet; empty: none
  std::string iptcCaption = {};  // empty: none
  size_t iccBytes = 0;           // 0: none; at least 132, in as many segments as it takes
  std::string comment = {};      // empty: none
};

// The whole file.
Bytes makeJpeg(const JpegRecipe& recipe);

// The red, green and blue of each pixel of the gradient, before it is encoded; all gray's if asked.
Bytes gradientPixels(int width, int height, bool gray);

// The same of a file; nothing if libjpeg cannot read it or warns.
Bytes decodePixels(const Bytes& jpeg);

// Whether libjpeg reads the header without an error.
bool hasReadableHeader(const Bytes& jpeg);

// The payload of an Exif segment ("Exif", two zero bytes, TIFF) for a picture of that size.
Bytes makeExif(const ExifRecipe& recipe, int width, int height);

// A colour profile of that many bytes: a header, no tags, filled up.
Bytes makeIccProfile(size_t sizeBytes);

// One segment with its marker and length. The payload is at most 65,533 bytes.
Bytes makeSegment(uint8_t marker, const Bytes& payload);

// The bytes with others put in at the offset.
Bytes insertBytes(const Bytes& whole, size_t offset, const Bytes& inserted);

// Return false if the file cannot be written, and no bytes if it cannot be read.
bool writeBytes(const std::string& path, const Bytes& bytes);
Bytes readBytes(const std::string& path);

#endif
