// Decodes one JPEG picture, given in pieces of any size, into rows of samples of each component.
//
// The picture may be shrunk by N/8 as it is decoded: libjpeg then computes N x N samples of a block
// instead of 8 x 8. Every coding that libjpeg-turbo reads is taken: grayscale to four components,
// any subsampling, progressive, arithmetic, with restart markers. What follows the picture is not
// looked at.
//
// A picture that breaks off is an error, not a half-grey success: its data or its scans end, or a
// marker stands where rows should. A missing end marker alone is none. (Of an arithmetic coding,
// whose end may be left out, only missing rows of blocks are noticed.)
//
// Thread: one decoder belongs to one thread.
// Errors: an operation that fails says so, and failure() and errorText() say why; none throws but
// std::bad_alloc.
#ifndef PLATFORM_JPEG_JPEG_DECODER_H
#define PLATFORM_JPEG_JPEG_DECODER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

enum class JpegColours { Gray, YCbCr, Rgb, Cmyk, Ycck };

// One component's samples, as large as they are decoded.
struct JpegPlane {
  int width;
  int height;
  // The part of the plane that the picture covers, in samples. The last column or row may reach
  // beyond the picture.
  double pictureWidth;
  double pictureHeight;
};

class JpegDecoder {
 public:
  // Of a picture with more, decoding takes minutes and gains nothing.
  static constexpr int maxScans = 100;
  // An arithmetic coding can only be read once it is there as a whole.
  static constexpr size_t maxArithmeticBytes = 64 << 20;

  enum class Progress { NeedsData, Ready, Ended, Failed };
  enum class Failure { None, Damaged, BreaksOff, NotSupported, TooLarge, NoMemory };

  JpegDecoder();
  ~JpegDecoder();
  JpegDecoder(const JpegDecoder&) = delete;
  JpegDecoder& operator=(const JpegDecoder&) = delete;

  void addData(const uint8_t* data, size_t sizeBytes);
  // No more data will come; what is missing from now on is an error.
  void endData();

  // Reads up to the first scan. Ready: the header is read.
  Progress readHeader();

  // After readHeader() was Ready: the whole picture's size, and how its colours are told.
  int width() const;
  int height() const;
  JpegColours colours() const;
  // What Adobe's programs write: no ink is the greatest value instead of 0.
  bool isInverted() const;
  // The most that libjpeg will take besides a few rows: the coefficients of a picture of several
  // scans, whose scans have all to be read before its first row is there.
  size_t coefficientBytes() const;

  // Begins to decode at eighths / 8 of the picture's size: 1, 2, 4 or 8, which libjpeg-turbo is
  // quick at. To be called with the same number until Ready: planes() then stands.
  Progress start(int eighths);
  const std::vector<JpegPlane>& planes() const;

  // Decodes the next row of blocks. Ready: there are rows; Ended: all were told before.
  Progress readRows();
  // How many rows of the component the last readRows() brought, and the rows; they stand until the
  // next call.
  int rowCount(size_t component) const;
  const uint8_t* row(size_t component, int index) const;

  Failure failure() const;
  std::string errorText() const;

 private:
  struct Libjpeg;

  std::unique_ptr<Libjpeg> library;
};

#endif
