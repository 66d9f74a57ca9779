#include "fit/photo/any_source.h"

#include "fit/photo/jpeg_source.h"
#include "fit/photo/photo_kind.h"

namespace {

constexpr char kSupported[] = "; supported: JPEG, PNG, GIF, WebP, HEIC, AVIF, TIFF";

}  // namespace

std::unique_ptr<PhotoSource> anySource(std::span<const uint8_t> file, PhotoFormats* formats,
                                       FitFailure* failure) {
  const PhotoKind kind = photoKindOf(file);
  if (kind == PhotoKind::Jpeg) return std::make_unique<JpegSource>(file);
  if (formats != nullptr && isOtherPicture(kind)) return formats->source(kind, file);
  if (kind == PhotoKind::Unknown || kind == PhotoKind::Movie) {
    const char* const what = kind == PhotoKind::Movie ? "a movie" : "no photo";
    *failure = {"NotAPhoto", std::string("The input is ") + what + kSupported, 0};
  } else {
    *failure = {"NotSupported",
                std::string("The input is of the format ") + nameOf(kind) + kSupported, 0};
  }
  return nullptr;
}
