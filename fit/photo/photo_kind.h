// What kind of picture a file is, by its first bytes.
#ifndef FIT_PHOTO_PHOTO_KIND_H
#define FIT_PHOTO_PHOTO_KIND_H

#include <cstdint>
#include <span>

enum class PhotoKind { Unknown, Jpeg, Png, Gif, Webp, Heic, Avif, Tiff, JpegXl, Movie };

// As many bytes as a kind is told by.
constexpr int kKindBytes = 64;

PhotoKind photoKindOf(std::span<const uint8_t> file);
// "jpeg", "png" and so on.
const char* nameOf(PhotoKind kind);
// Whether pictures of this kind are read, though not by the decoder of JPEG.
bool isOtherPicture(PhotoKind kind);

#endif
