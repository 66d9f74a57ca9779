#include "client/files/jpeg_file.h"

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

// jpeglib.h needs FILE and size_t declared before it.
#include <jpeglib.h>

namespace {

struct CloseFile {
  void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseFile>;

struct HeaderErrors {
  jpeg_error_mgr manager;
  jmp_buf failed;
  char text[JMSG_LENGTH_MAX];
};

[[noreturn]] void leaveHeader(j_common_ptr reader) {
  auto* errors = reinterpret_cast<HeaderErrors*>(reader->err);
  errors->manager.format_message(reader, errors->text);
  longjmp(errors->failed, 1);
}

void sayNothing(j_common_ptr) {}

constexpr int kMarker = 0xff;
constexpr int kStart = 0xd8;
constexpr int kScan = 0xda;
constexpr int kEnd = 0xd9;

int nextByte(const Stream& stream) {
  return getc_unlocked(stream.get());
}

// Whether no segment follows: a byte of data that looks like a marker, or one between two parts.
bool standsAlone(int marker) {
  return marker == 0 || marker == 1 || (marker >= 0xd0 && marker <= 0xd7);
}

// No object with a destructor may live in here: longjmp skips them.
bool readsAsHeader(FILE* stream, HeaderErrors* errors, JpegSize* size) {
  jpeg_decompress_struct reader;
  reader.err = jpeg_std_error(&errors->manager);
  errors->manager.error_exit = leaveHeader;
  errors->manager.output_message = sayNothing;
  if (setjmp(errors->failed) != 0) {
    jpeg_destroy_decompress(&reader);
    return false;
  }
  jpeg_create_decompress(&reader);
  jpeg_stdio_src(&reader, stream);
  const bool isRead = jpeg_read_header(&reader, TRUE) == JPEG_HEADER_OK;
  *size = {static_cast<int>(reader.image_width), static_cast<int>(reader.image_height)};
  jpeg_destroy_decompress(&reader);
  return isRead;
}

}  // namespace

bool readJpegSize(const std::string& path, JpegSize* size, std::string* error) {
  const Stream stream(fopen(path.c_str(), "rb"));
  if (stream == nullptr) {
    *error = strerror(errno);
    return false;
  }
  HeaderErrors errors = {};
  if (readsAsHeader(stream.get(), &errors, size)) return true;
  *error = errors.text;
  return false;
}

bool startsAsJpeg(const std::string& path) {
  const Stream stream(fopen(path.c_str(), "rb"));
  return stream != nullptr && nextByte(stream) == kMarker && nextByte(stream) == kStart;
}

bool isWholeJpeg(const std::string& path) {
  const Stream stream(fopen(path.c_str(), "rb"));
  if (stream == nullptr || nextByte(stream) != kMarker || nextByte(stream) != kStart) return false;
  bool hasScan = false;
  for (int byte = nextByte(stream); byte != EOF; byte = nextByte(stream)) {
    if (byte != kMarker) {
      if (!hasScan) return false;
      continue;  // the data of a scan
    }
    do {
      byte = nextByte(stream);
    } while (byte == kMarker);
    if (byte == kEnd) return hasScan;
    if (standsAlone(byte)) continue;
    hasScan |= byte == kScan;
    const int high = nextByte(stream);
    const int low = nextByte(stream);
    if (low == EOF || fseek(stream.get(), high * 256 + low - 2, SEEK_CUR) != 0) return false;
  }
  return false;
}
