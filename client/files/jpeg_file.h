// A quick look at a file: is it a JPEG, and a whole one?
#ifndef CLIENT_FILES_JPEG_FILE_H
#define CLIENT_FILES_JPEG_FILE_H

#include <string>

// Why the service could not read the file as a picture, or "" when it could. The same header reader
// as the service's; there it ends the service on a file that is no JPEG.
std::string whyNoJpeg(const std::string& path);

// Whether the file begins and ends as a whole JPEG does.
bool isWholeJpeg(const std::string& path);

#endif
