#include "client/files/photo_info.h"

#include <algorithm>
#include <fstream>
#include <vector>

#include "platform/jpeg/exif_camera.h"
#include "platform/jpeg/jpeg_metadata.h"
#include "platform/jpeg/jpeg_segments.h"

bool readPhotoInfo(const std::string& path, PhotoInfo* info, std::string* error) {
  if (!readJpegSize(path, &info->size, error)) return false;
  std::ifstream stream(path, std::ios::binary);
  JpegHeaderReader header;
  std::vector<char> part(65536);
  while (header.status() == JpegHeaderReader::Status::NeedsMore && stream) {
    stream.read(part.data(), static_cast<std::streamsize>(part.size()));
    header.feed(reinterpret_cast<const uint8_t*>(part.data()),
                static_cast<size_t>(stream.gcount()));
  }
  constexpr int64_t kMarkerAndLength = 4;
  for (const JpegSegment& segment : header.segments()) {
    info->metadataBytes += kMarkerAndLength + static_cast<int64_t>(segment.payload.size());
    if (info->camera.empty() && isExif(segment)) info->camera = exifCamera(segment.payload);
  }
  return true;
}
