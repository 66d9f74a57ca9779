#include "src/movie/mpeg_info.h"

#include "src/movie/mpeg_info_native_ffmpeg.h"

MpegInfo* createMpegInfo(VSCtx* ctx) {
  return new MpegInfoNativeFFMpeg(ctx);
}

void MpegInfo::replySuccess() {
  if (quiet) return;
  dsjson::JValue success = dsjson::Object();
  success.put("returnValue", true);
  success.put("fileSize", fileSize);
  success.put("bitrate", bitrate);
  success.put("clipLength", clipLength / 1000.0);
  ctx->reply(success);
}

bool MpegInfo::parseVSParameters(dsjson::JValue& params) {
  if (params["inFile"].asString(inFile) == dsjson::CONV_OK) return true;
  ctx->setLastErrorMessage("Could not parse inFile param string\n");
  return false;
}
