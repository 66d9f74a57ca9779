// JpegTranscode is one image request: its parameters, the planned picture size and the reply.
//
// Thread: the main loop's.
// Owns: the two streams.
#ifndef SRC_IMAGE_JPEG_TRANSCODE_H
#define SRC_IMAGE_JPEG_TRANSCODE_H

#include <cstdint>
#include <cstdio>
#include <memory>

#include "src/framework/transcode_base.h"

enum JpegTranscodeCommand : int32_t {
  JpegResize = 1,  // the whole picture, within a byte budget
  JpegScale = 2,   // a clip of the picture, scaled by a percentage
};

class JpegTranscode : public TranscodeBase {
 public:
  JpegTranscode(VSCtx* context, JpegTranscodeCommand jpegCommand);

  // Replies with outWidth, outHeight and the byte size of the output file as it stands.
  void replySuccess() override;

  // Reads and checks the members of the request that the command needs.
  bool parseVSParameters(dsjson::JValue& params) override;

  // Opens input and output, reads the picture's dimensions and plans outWidth and outHeight. Both
  // must be regular files, the output may be a new name, and not the input's. The output file and
  // the directories above it are made before the input is looked at. An input that is no JPEG ends
  // the process: the JPEG library's own error exit is left in place.
  bool init() override;

  // Rounds both up to a multiple of 16; the division truncates toward zero, so negative values
  // may move by up to 31.
  static void FixFrameSizeMod16(int* width, int* height);

 protected:
  using TranscodeBase::parseVSParameters;

  struct CloseFile {
    void operator()(FILE* stream) const { fclose(stream); }
  };
  using Stream = std::unique_ptr<FILE, CloseFile>;

  const JpegTranscodeCommand command;
  int targetSize = 0;  // byte budget of the output file
  int scale = 0;       // percent
  int yTop;            // the clip rectangle, in pixels of the source
  int xTop;
  int xSize;
  int ySize;
  Stream inputStream;
  int inputFileSize;  // bytes
  Stream outputStream;
  int imageWidth;  // of the source
  int imageHeight;
  int outWidth = 0;
  int outHeight = 0;
  int outputFileSize = 0;  // bytes

 private:
  bool parseScale(const dsjson::JValue& params);
  bool parseInt(const dsjson::JValue& params, const char* key, int* out, const char* errorText);
  bool openFiles();
  bool readHeader();
  void planResize();
  bool planScale();
  bool fail(const char* errorText);
};

#endif
