#include "fit/photo/photo_kind.h"

#include <algorithm>
#include <string_view>

namespace {

using namespace std::string_view_literals;

struct Magic {
  size_t offset;
  std::string_view bytes;
  PhotoKind kind;
};

constexpr Magic kMagics[] = {
    {0, "\xFF\xD8"sv, PhotoKind::Jpeg},
    {0, "\x89PNG\r\n"sv, PhotoKind::Png},
    {0, "GIF8"sv, PhotoKind::Gif},
    {8, "WEBP"sv, PhotoKind::Webp},
    {0, "II*\0"sv, PhotoKind::Tiff},
    {0, "MM\0*"sv, PhotoKind::Tiff},
    {0, "\xFF\x0A"sv, PhotoKind::JpegXl},
    {4, "JXL \r\n"sv, PhotoKind::JpegXl},
    {0, "\x1A\x45\xDF\xA3"sv, PhotoKind::Movie},
};

// A file of ISO's boxes opens with the names of what may read it.
PhotoKind kindOfBoxes(std::string_view start) {
  const std::string_view major = start.substr(8, 4);
  if (major.starts_with("avi"sv)) return PhotoKind::Avif;
  if (major == "heic"sv || major == "heix"sv) return PhotoKind::Heic;
  if (major != "mif1"sv) return PhotoKind::Movie;
  const auto length = static_cast<uint8_t>(start[3]);  // a longer list is no photo's
  return start.substr(0, length).find("avif"sv) == start.npos ? PhotoKind::Heic : PhotoKind::Avif;
}

}  // namespace

PhotoKind photoKindOf(std::span<const uint8_t> file) {
  const std::string_view start(reinterpret_cast<const char*>(file.data()),
                               std::min<size_t>(file.size(), kKindBytes));
  for (const Magic& magic : kMagics) {
    if (start.size() >= magic.offset && start.substr(magic.offset).starts_with(magic.bytes)) {
      return magic.kind;
    }
  }
  const bool isBoxes = start.size() >= 12 && start.substr(4, 4) == "ftyp"sv;
  return isBoxes ? kindOfBoxes(start) : PhotoKind::Unknown;
}

const char* nameOf(PhotoKind kind) {
  switch (kind) {
    case PhotoKind::Jpeg:
      return "jpeg";
    case PhotoKind::Png:
      return "png";
    case PhotoKind::Gif:
      return "gif";
    case PhotoKind::Webp:
      return "webp";
    case PhotoKind::Heic:
      return "heic";
    case PhotoKind::Avif:
      return "avif";
    case PhotoKind::Tiff:
      return "tiff";
    case PhotoKind::JpegXl:
      return "jpeg-xl";
    case PhotoKind::Movie:
      return "movie";
    default:
      return "unknown";
  }
}

bool isOtherPicture(PhotoKind kind) {
  constexpr PhotoKind kOthers[] = {PhotoKind::Png,  PhotoKind::Gif,  PhotoKind::Webp,
                                   PhotoKind::Heic, PhotoKind::Avif, PhotoKind::Tiff};
  return std::find(std::begin(kOthers), std::end(kOthers), kind) != std::end(kOthers);
}
