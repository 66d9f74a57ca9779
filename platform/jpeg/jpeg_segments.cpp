#include "platform/jpeg/jpeg_segments.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint8_t kMarkerTem = 0x01;
constexpr uint8_t kMarkerRst0 = 0xD0;
constexpr uint8_t kMarkerRst7 = 0xD7;
constexpr size_t kFrameHeaderBytes = 6;  // precision, height, width, number of components

// Neither length nor payload follows.
bool standsAlone(uint8_t marker) {
  return marker == kMarkerTem || (marker >= kMarkerRst0 && marker <= kMarkerRst7);
}

bool isFrameHeader(uint8_t marker) {
  // 0xC4, 0xC8 and 0xCC lie in the range but are Huffman tables, reserved, and arithmetic coding.
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

bool isKept(uint8_t marker) {
  return (marker >= kMarkerApp0 && marker <= kMarkerApp15) || marker == kMarkerCom;
}

}  // namespace

JpegHeaderReader::Status JpegHeaderReader::feed(const uint8_t* data, size_t sizeBytes) {
  size_t at = 0;
  while (at < sizeBytes && readStatus == Status::NeedsMore) {
    size_t used = 1;
    if (expect == Expect::Payload) {
      used = takePayload(data + at, sizeBytes - at);
    } else {
      takeByte(data[at]);
    }
    at += used;
    if (readStatus == Status::NeedsMore && headerBytes > maxHeaderBytes) {
      readStatus = Status::TooLong;
    }
  }
  return readStatus;
}

void JpegHeaderReader::takeByte(uint8_t byte) {
  ++headerBytes;
  switch (expect) {
    case Expect::Soi0:
      if (byte != 0xFF) readStatus = Status::NotJpeg;
      expect = Expect::Soi1;
      break;
    case Expect::Soi1:
      if (byte != kMarkerSoi) readStatus = Status::NotJpeg;
      expect = Expect::Fill;
      break;
    case Expect::Fill:
      if (byte == 0xFF) expect = Expect::Marker;
      break;
    case Expect::Marker:
      startMarker(byte);
      break;
    case Expect::LengthHigh:
      lengthHigh = byte;
      expect = Expect::LengthLow;
      break;
    case Expect::LengthLow: {
      const size_t length = static_cast<size_t>(lengthHigh) << 8 | byte;
      if (length < 2) {
        readStatus = Status::Malformed;
      } else {
        startPayload(length - 2);
      }
      break;
    }
    case Expect::Payload:
      break;
  }
}

void JpegHeaderReader::startMarker(uint8_t marker) {
  if (marker == 0xFF) return;  // a fill byte; the marker is still to come
  if (marker == 0x00 || standsAlone(marker)) {
    expect = Expect::Fill;
  } else if (marker == kMarkerSoi || marker == kMarkerEoi) {
    readStatus = Status::Malformed;
  } else if (marker == kMarkerSos) {
    readStatus = frameSeen ? Status::Complete : Status::Malformed;
  } else {
    current.marker = marker;
    expect = Expect::LengthHigh;
  }
}

void JpegHeaderReader::startPayload(size_t payloadBytes) {
  payloadLeft = payloadBytes;
  current.payload.clear();
  expect = Expect::Payload;
  if (payloadBytes == 0) endSegment();
}

size_t JpegHeaderReader::takePayload(const uint8_t* data, size_t sizeBytes) {
  const size_t used = std::min(sizeBytes, payloadLeft);
  if (isKept(current.marker) || isFrameHeader(current.marker)) {
    current.payload.insert(current.payload.end(), data, data + used);
  }
  payloadLeft -= used;
  headerBytes += used;
  if (payloadLeft == 0) endSegment();
  return used;
}

void JpegHeaderReader::endSegment() {
  expect = Expect::Fill;
  if (isFrameHeader(current.marker)) {
    readFrameHeader();
  } else if (isKept(current.marker)) {
    if (kept.size() < maxSegments) {
      current.endOffset = headerBytes;
      kept.push_back(std::move(current));
    } else {
      ++leftOutCount;
    }
  }
  current = {};
}

void JpegHeaderReader::readFrameHeader() {
  if (current.payload.size() < kFrameHeaderBytes) {
    readStatus = Status::Malformed;
    return;
  }
  const auto& bytes = current.payload;
  const uint32_t height = static_cast<uint32_t>(bytes[1]) << 8 | bytes[2];
  const uint32_t width = static_cast<uint32_t>(bytes[3]) << 8 | bytes[4];
  if (!frameSeen ||
      static_cast<uint64_t>(width) * height > static_cast<uint64_t>(frameWidth) * frameHeight) {
    frameWidth = width;
    frameHeight = height;
  }
  frameSeen = true;
}
