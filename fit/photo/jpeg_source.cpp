#include "fit/photo/jpeg_source.h"

#include "fit/picture/turning.h"
#include "platform/jpeg/jpeg_segments.h"

JpegSource::JpegSource(std::span<const uint8_t> bytes) : file(bytes), reading(bytes) {}

bool JpegSource::fail(FitFailure* failure) const {
  switch (reading.failure()) {
    case JpegDecoder::Failure::NotSupported:
      failure->name = "NotSupported";
      break;
    case JpegDecoder::Failure::TooLarge:
    case JpegDecoder::Failure::NoMemory:
      failure->name = "TooLarge";
      break;
    default:
      failure->name = "Damaged";
  }
  failure->message = error;
  return false;
}

bool JpegSource::open(FitFailure* failure) {
  if (!reading.readHeader(&error)) return fail(failure);
  JpegHeaderReader header;
  header.feed(file.data(), file.size());
  told = PhotoMetadata(header.segments());
  if (reading.hasInk()) told.dropProfile();
  return true;
}

PictureSize JpegSource::size() const {
  return turnedSize(reading.size(), told.orientation());
}

bool JpegSource::check(FitFailure* failure) {
  JpegReading whole(file);
  Picture ignored;
  if (whole.readHeader(&error) && whole.read(1, &ignored, &error)) return true;
  failure->name = "Damaged";
  failure->message = error;
  return false;
}

bool JpegSource::read(double pixels, const std::function<void(double)>& onShare, Picture* picture,
                      FitFailure* failure) {
  int eighths = 1;
  while (eighths < 8 && size().pixels() * eighths * eighths / 64 < pixels) {
    eighths *= 2;
  }
  if (!reading.read(eighths, picture, &error, onShare)) return fail(failure);
  turnUpright(told.orientation(), picture);
  return true;
}
