// Reads a whole JPEG file into a picture, at a fraction of its size where less is enough.
#ifndef FIT_PICTURE_JPEG_READING_H
#define FIT_PICTURE_JPEG_READING_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "fit/picture/picture.h"
#include "platform/jpeg/jpeg_decoder.h"

class JpegReading {
 public:
  // Borrows the file's bytes.
  explicit JpegReading(std::span<const uint8_t> file);

  JpegDecoder::Failure failure() const { return decoder.failure(); }

  // Reads up to the first scan. False if that is no picture; *error says why in one line.
  bool readHeader(std::string* error);
  // After readHeader(): as it is stored, before it is turned upright.
  PictureSize size() const { return {decoder.width(), decoder.height()}; }
  // Colours with black ink are converted, so that a profile of theirs no longer holds.
  bool hasInk() const;

  // Decodes it at eighths / 8 of its size: 1, 2, 4 or 8. To be called once. `onRows` hears how much
  // is decoded, 0 to 1. False if the picture is damaged or breaks off, or takes too much memory;
  // *error says why.
  bool read(int eighths, Picture* picture, std::string* error,
            const std::function<void(double)>& onRows = nullptr);

  // What a decoder takes of several scans is the whole picture's coefficients.
  static constexpr size_t kMostCoefficientBytes = size_t{160} << 20;

 private:
  template <typename Step>
  JpegDecoder::Progress feed(const Step& step);
  bool fail(std::string* error) const;
  void convert(Picture* picture) const;

  std::span<const uint8_t> rest;
  JpegDecoder decoder;
};

// The whole of it at once.
bool readJpeg(std::span<const uint8_t> file, Picture* picture, std::string* error);

#endif
