#include "src/image/jpeg_transcode.h"

// jpeglib.h needs FILE and size_t declared before it.
#include <jpeglib.h>

#include <cmath>

#include "src/framework/int32.h"
#include "src/framework/make_dest_dir.h"
#include "src/image/regular_file.h"

namespace {

int sizeInBytes(FILE* stream) {
  fseeko(stream, 0, SEEK_END);
  return static_cast<int>(ftello(stream));
}

int roundUpMod16(int value) {
  return (value & 15) == 0 ? value : value / 16 * 16 + 16;
}

}  // namespace

JpegTranscode::JpegTranscode(VSCtx* context, JpegTranscodeCommand jpegCommand)
    : TranscodeBase(context), command(jpegCommand) {}

void JpegTranscode::replySuccess() {
  if (outputStream == nullptr) outputStream.reset(fopen(outFile.c_str(), "rb"));
  outputFileSize = outputStream == nullptr ? 0 : sizeInBytes(outputStream.get());

  dsjson::JValue success = dsjson::Object();
  success.put("returnValue", true);
  success.put("xSize", outWidth);
  success.put("ySize", outHeight);
  success.put("ImageSize", outputFileSize);
  ctx->reply(success);
}

bool JpegTranscode::parseVSParameters(dsjson::JValue& params) {
  if (!TranscodeBase::parseVSParameters(params)) return false;
  switch (command) {
    case JpegResize:
      return parseInt(params, "size", &targetSize, "Could not parse param resize");
    case JpegScale:
      return parseScale(params);
  }
  return fail("Unknown jpeg transcoding command");
}

bool JpegTranscode::parseScale(const dsjson::JValue& params) {
  if (!parseInt(params, "xTop", &xTop, "Could not parse param xTop") ||
      !parseInt(params, "yTop", &yTop, "Could not parse param yTop") ||
      !parseInt(params, "xSize", &xSize, "Could not parse param xSize") ||
      !parseInt(params, "ySize", &ySize, "Could not parse param ySize") ||
      !parseInt(params, "scale", &scale, "Could not parse param scale")) {
    return false;
  }
  if (scale < 1 || scale > 100) return fail("Bad scale parameter");
  xSize &= ~15;
  ySize &= ~15;
  if (xSize <= 0) return fail("Bad xSize parameter");
  if (ySize <= 0) return fail("Bad ySize parameter");
  return true;
}

bool JpegTranscode::parseInt(const dsjson::JValue& params, const char* key, int* out,
                             const char* errorText) {
  return params[key].asNumber(*out) == dsjson::CONV_OK || fail(errorText);
}

bool JpegTranscode::init() {
  if (!openFiles() || !readHeader()) return false;
  switch (command) {
    case JpegResize:
      planResize();
      break;
    case JpegScale:
      if (!planScale()) return false;
      break;
    default:
      return fail("Unknown jpeg transcoding command");
  }
  FixFrameSizeMod16(&outWidth, &outHeight);
  return (outWidth > 0 && outHeight > 0) || fail("Scale factor is too small\n");
}

bool JpegTranscode::openFiles() {
  inputStream.reset(openRegularFile(inFile.c_str()));
  if (inputStream == nullptr) return fail("Unable to open file");
  inputFileSize = sizeInBytes(inputStream.get());
  rewind(inputStream.get());

  const bool hasName = outFile.find_first_not_of('/') != std::string::npos;
  if (!hasName || makeDestDir(outFile.c_str()) != 0) {
    return fail("failed to create output directory");
  }
  outputStream.reset(emptyRegularFile(outFile.c_str(), inputStream.get()));
  return outputStream != nullptr || fail("failed to open output file");
}

bool JpegTranscode::readHeader() {
  jpeg_error_mgr errors;
  jpeg_decompress_struct header;
  header.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&header);
  jpeg_stdio_src(&header, inputStream.get());
  const bool isRead = jpeg_read_header(&header, TRUE) == JPEG_HEADER_OK;
  if (isRead) {
    imageWidth = static_cast<int>(header.image_width);
    imageHeight = static_cast<int>(header.image_height);
  }
  jpeg_destroy_decompress(&header);
  return isRead || fail("unable to read JPEG header \n");
}

// The byte count is taken to shrink with the pixel count, so the divisor is the largest even number
// not above the square root of the wanted shrinkage.
void JpegTranscode::planResize() {
  xTop = 0;
  yTop = 0;
  xSize = imageWidth;
  ySize = imageHeight;
  int divisor = 1;
  if (inputFileSize >= targetSize) {
    const double ratio = static_cast<double>(inputFileSize) / targetSize;
    const int half = truncateToInt32(std::sqrt(ratio) * 0.5);
    if (half > 0) divisor = 2 * half;
  }
  outWidth = imageWidth / divisor;
  outHeight = imageHeight / divisor;
}

bool JpegTranscode::planScale() {
  if (wrappedSum(xTop, xSize) > imageWidth || wrappedSum(yTop, ySize) > imageHeight) {
    return fail("invalid clip rect");
  }
  outWidth = truncateToInt32(static_cast<double>(imageWidth) * scale / 100);
  // outHeight is still 0 and so is the product: callers rely on the refusal that follows.
  outHeight = truncateToInt32(static_cast<double>(outHeight) * scale * imageHeight / 100);
  return true;
}

void JpegTranscode::FixFrameSizeMod16(int* width, int* height) {
  *width = roundUpMod16(*width);
  *height = roundUpMod16(*height);
}

bool JpegTranscode::fail(const char* errorText) {
  ctx->setLastErrorMessage(errorText);
  return false;
}
