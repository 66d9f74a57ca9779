// A quick look at a file: is it a JPEG, and a whole one?
#ifndef CLIENT_FILES_JPEG_FILE_H
#define CLIENT_FILES_JPEG_FILE_H

#include <string>

// In pixels.
struct JpegSize {
  int width = 0;
  int height = 0;
};

// Why the service could not read the file as a picture, or "" when it could: the picture's size is
// then in `size`. The same header reader as the service's; there it ends the service on a file that
// is no JPEG.
std::string whyNoJpeg(const std::string& path, JpegSize* size);

// Whether the file begins and ends as a whole JPEG does.
bool isWholeJpeg(const std::string& path);

#endif
