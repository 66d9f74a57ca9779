#include "fit/photo/photo_source.h"

#include <cstring>
#include <string_view>

#include "fit/picture/turning.h"

namespace {

using namespace std::string_view_literals;

struct Kind {
  size_t offset;
  std::string_view magic;
  const char* name;
};

constexpr char kMovie[] = "a movie";
constexpr Kind kOtherKinds[] = {
    {0, "\x89PNG\r\n"sv, "a PNG"},  {0, "GIF8"sv, "a GIF"},      {8, "WEBP"sv, "a WebP"},
    {4, "ftypheic"sv, "a HEIC"},    {4, "ftypheix"sv, "a HEIC"}, {4, "ftypmif1"sv, "a HEIF"},
    {4, "ftypavif"sv, "an AVIF"},   {0, "II*\0"sv, "a TIFF"},    {0, "MM\0*"sv, "a TIFF"},
    {0, "\xFF\x0A"sv, "a JPEG XL"}, {4, "ftyp"sv, kMovie},       {0, "\x1A\x45\xDF\xA3"sv, kMovie},
};

// nullptr where it is a JPEG, or may be one.
const char* otherKindOf(std::span<const uint8_t> file) {
  for (const Kind& kind : kOtherKinds) {
    if (file.size() >= kind.offset + kind.magic.size() &&
        memcmp(&file[kind.offset], kind.magic.data(), kind.magic.size()) == 0) {
      return kind.name;
    }
  }
  return nullptr;
}

}  // namespace

PhotoSource::PhotoSource(std::span<const uint8_t> bytes) : file(bytes), reading(bytes) {}

bool PhotoSource::fail(FitFailure* failure) const {
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

bool PhotoSource::open(FitFailure* failure) {
  if (file.size() < 2 || file[0] != 0xFF || file[1] != kMarkerSoi) {
    const char* kind = otherKindOf(file);
    failure->name = kind != nullptr && kind != kMovie ? "NotSupported" : "NotAPhoto";
    failure->message = kind ? "The input is " + std::string(kind) + "; supported: JPEG"
                            : "The input is no photo; supported: JPEG";
    return false;
  }
  if (!reading.readHeader(&error)) return fail(failure);
  JpegHeaderReader header;
  header.feed(file.data(), file.size());
  told = PhotoMetadata(header.segments());
  if (reading.hasInk()) told.dropProfile();
  return true;
}

PictureSize PhotoSource::size() const {
  return turnedSize(reading.size(), told.orientation());
}

bool PhotoSource::check(FitFailure* failure) {
  JpegReading whole(file);
  Picture ignored;
  if (whole.readHeader(&error) && whole.read(1, &ignored, &error)) return true;
  failure->name = "Damaged";
  failure->message = error;
  return false;
}

bool PhotoSource::read(double pixels, const std::function<void(double)>& onShare, Picture* picture,
                       FitFailure* failure) {
  int eighths = 1;
  while (eighths < 8 && size().pixels() * eighths * eighths / 64 < pixels) {
    eighths *= 2;
  }
  if (!reading.read(eighths, picture, &error, onShare)) return fail(failure);
  turnUpright(told.orientation(), picture);
  return true;
}
