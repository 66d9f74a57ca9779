// A quick look at a file: is it a JPEG, and a whole one?
#ifndef CLIENT_FILES_JPEG_FILE_H
#define CLIENT_FILES_JPEG_FILE_H

#include <string>

// In pixels.
struct JpegSize {
  int width = 0;
  int height = 0;
};

// Whether the service can read the file as a picture, whose size is then in *size; if not, *error
// says why. The same header reader as the service's; there it ends the service on a file that is no
// JPEG.
bool readJpegSize(const std::string& path, JpegSize* size, std::string* error);

// Whether the first bytes are those of a JPEG.
bool startsAsJpeg(const std::string& path);

// Whether the file begins with a JPEG picture that goes to its end marker. Its data is not decoded.
// What follows it is not looked at: telephones put a clip there, or nothing but zeros.
bool isWholeJpeg(const std::string& path);

#endif
