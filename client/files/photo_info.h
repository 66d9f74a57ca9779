// What a JPEG file is, by a look at its header.
#ifndef CLIENT_FILES_PHOTO_INFO_H
#define CLIENT_FILES_PHOTO_INFO_H

#include <cstdint>
#include <string>

#include "client/files/jpeg_file.h"

struct PhotoInfo {
  JpegSize size;              // as it is stored
  int64_t metadataBytes = 0;  // of what stands in the header beside the picture
  std::string camera;         // "" where it is not told
};

// If the service cannot read the file as a picture, *error says why.
bool readPhotoInfo(const std::string& path, PhotoInfo* info, std::string* error);

#endif
