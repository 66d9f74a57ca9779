#include "service/transcode_server.h"

#include <memory>

#include "framework/vs_ctx.h"
#include "image/jpeg_transcode_gstreamer.h"

int TranscodeServer::taskCount = 0;

bool TranscodeServer::scaleImage(VSHandle* handle, VSMessage* message, void*) {
  JpegTranscodeGstreamer(new VSCtx(handle, message), JpegScale).launch();
  return true;
}

bool TranscodeServer::resizeImage(VSHandle* handle, VSMessage* message, void*) {
  JpegTranscodeGstreamer(new VSCtx(handle, message), JpegResize).launch();
  return true;
}

bool TranscodeServer::getMinimalBitrate(VSHandle* handle, VSMessage* message, void*) {
  VSCtx(handle, message).reply(R"({"returnValue": 204800})");
  return true;
}
