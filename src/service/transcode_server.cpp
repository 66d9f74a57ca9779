#include "src/service/transcode_server.h"

#include <memory>

#include "src/framework/vs_ctx.h"
#include "src/image/jpeg_transcode_gstreamer.h"
#include "src/movie/mpeg_info.h"
#include "src/movie/mpeg_transcode_native_ffmpeg.h"

bool TranscodeServer::scaleImage(VSHandle* handle, VSMessage* message, void*) {
  JpegTranscodeGstreamer(new VSCtx(handle, message), JpegScale).launch();
  return true;
}

bool TranscodeServer::resizeImage(VSHandle* handle, VSMessage* message, void*) {
  JpegTranscodeGstreamer(new VSCtx(handle, message), JpegResize).launch();
  return true;
}

bool TranscodeServer::resizeMovie(VSHandle* handle, VSMessage* message, void*) {
  std::unique_ptr<MpegInfo> probe(createMpegInfo(new VSCtx(handle, message)));
  probe->quiet = true;
  if (probe->launch() != LaunchDone) return true;

  auto transcoder = std::make_unique<MpegTranscodeNativeFFMpeg>(new VSCtx(handle, message));
  transcoder->mpegInfo = probe.get();
  if (transcoder->launch() == LaunchRunning) {
    // Both belong to the worker thread now, and may be gone already.
    (void)transcoder.release();
    (void)probe.release();
  }
  return true;
}

bool TranscodeServer::getMovieInfo(VSHandle* handle, VSMessage* message, void*) {
  const std::unique_ptr<MpegInfo> info(createMpegInfo(new VSCtx(handle, message)));
  info->launch();
  return true;
}

bool TranscodeServer::getMinimalBitrate(VSHandle* handle, VSMessage* message, void*) {
  VSCtx(handle, message).reply(R"({"returnValue": 204800})");
  return true;
}
