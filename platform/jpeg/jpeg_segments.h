// Reads the header of a JPEG picture, everything before its first scan, from pieces of any size.
//
// Reading is as forgiving as libjpeg's: fill bytes and stray bytes between segments are skipped.
//
// Thread: one reader belongs to one thread.
// Errors: none thrown but std::bad_alloc; the status tells. Memory is bounded by maxHeaderBytes.
#ifndef PLATFORM_JPEG_JPEG_SEGMENTS_H
#define PLATFORM_JPEG_JPEG_SEGMENTS_H

#include <cstddef>
#include <cstdint>
#include <vector>

// The second byte of the markers that are looked for; the first is always 0xFF.
constexpr uint8_t kMarkerSoi = 0xD8;
constexpr uint8_t kMarkerEoi = 0xD9;
constexpr uint8_t kMarkerSos = 0xDA;
constexpr uint8_t kMarkerApp0 = 0xE0;
constexpr uint8_t kMarkerApp15 = 0xEF;
constexpr uint8_t kMarkerCom = 0xFE;

// The longest payload that the two length bytes, which count themselves, can express.
constexpr size_t kMaxSegmentPayload = 65533;

// One APPn or COM segment as it stood in the file, without marker and length.
struct JpegSegment {
  uint8_t marker;
  std::vector<uint8_t> payload;
  size_t endOffset = 0;  // in the file, of the first byte behind it
};

class JpegHeaderReader {
 public:
  enum class Status {
    NeedsMore,  // no scan yet
    Complete,   // the first scan was reached; size and segments stand
    NotJpeg,    // the first two bytes are not those of a JPEG picture
    Malformed,  // a scan without a frame, a second start, an end, an impossible length
    TooLong,    // no scan within maxHeaderBytes
  };

  // A header holds at most about a thousand full segments of extended XMP; this is as much.
  static constexpr size_t maxHeaderBytes = 64 * 1024 * 1024;
  // Many tiny segments would cost more than their bytes; those beyond are counted, not kept.
  static constexpr size_t maxSegments = 4096;

  // Takes the next bytes of the file. Once the status is other than NeedsMore it stays, and
  // further bytes are ignored.
  Status feed(const uint8_t* data, size_t sizeBytes);

  Status status() const { return readStatus; }
  // The picture's size in pixels; the largest if several frame headers claim one.
  uint32_t width() const { return frameWidth; }
  uint32_t height() const { return frameHeight; }
  // The APPn and COM segments in the order of the file.
  const std::vector<JpegSegment>& segments() const { return kept; }
  // How many segments were over maxSegments.
  size_t leftOut() const { return leftOutCount; }

 private:
  enum class Expect { Soi0, Soi1, Fill, Marker, LengthHigh, LengthLow, Payload };

  void takeByte(uint8_t byte);
  void startMarker(uint8_t marker);
  void startPayload(size_t payloadBytes);
  size_t takePayload(const uint8_t* data, size_t sizeBytes);
  void endSegment();
  void readFrameHeader();

  Status readStatus = Status::NeedsMore;
  Expect expect = Expect::Soi0;
  size_t headerBytes = 0;
  uint8_t lengthHigh = 0;
  size_t payloadLeft = 0;
  JpegSegment current{};  // its payload is filled only when it is of use
  std::vector<JpegSegment> kept;
  size_t leftOutCount = 0;
  bool frameSeen = false;
  uint32_t frameWidth = 0;
  uint32_t frameHeight = 0;
};

#endif
