#include "src/movie/mpeg_transcode_native.h"

#include <glib.h>

#include "src/movie/extended_arithmetic.h"
#include "src/movie/file_size.h"

using dsjson::JValue;

namespace {

constexpr char kCopy[] = "copy";

template <typename Number>
bool readNumber(const JValue& params, const char* key, Number* out) {
  return params[key].asNumber(*out) == dsjson::CONV_OK;
}

void readText(const JValue& params, const char* key, std::string* out) {
  params[key].asString(*out);
}

void readSeconds(const JValue& params, const char* key, int32_t* outMs) {
  double seconds;
  if (readNumber(params, key, &seconds)) *outMs = extendedProduct(seconds, 1000);
}

// Drops a limit that does not apply to a copied stream.
void ignore(int32_t* limit, const char* name, const char* encoder) {
  if (*limit == 0) return;
  *limit = 0;
  g_warning("ignore %s when %s=copy", name, encoder);
}

}  // namespace

bool MpegTranscodeNative::parseVSParameters(JValue& params) {
  if (!TranscodeBase::parseVSParameters(params)) return false;
  readSeconds(params, "clipLength", &clipLengthMs);
  readSeconds(params, "startOffset", &startOffsetMs);
  readNumber(params, "maxOutputSize", &maxOutputSize);
  readText(params, "audioCodec", &audioEncoder);
  readText(params, "videoCodec", &videoEncoder);
  readNumber(params, "videoBitrate", &bitrateVideo);
  readNumber(params, "audioBitrate", &bitrateAudio);
  readNumber(params, "audioSamplingRate", &audioSamplingRate);
  readNumber(params, "maxBitrate", &maxBitrate);
  int32_t passes;
  if (readNumber(params, "passes", &passes)) setPasses(passes);
  readText(params, "picSize", &picSize);
  double framesPerSecond;
  if (readNumber(params, "videoFrameRate", &framesPerSecond)) {
    videoFrameRate = static_cast<float>(framesPerSecond);
  }
  return true;
}

bool MpegTranscodeNative::init() {
  return prepareParameters() && calculateBitrates();
}

void MpegTranscodeNative::setPasses(int) {}

int MpegTranscodeNative::getPasses() {
  return 1;
}

bool MpegTranscodeNative::prepareParameters() {
  return prepareFiles() && prepareCopy() && prepareCodecs();
}

bool MpegTranscodeNative::prepareFiles() {
  if (!fileSizeOf(inFile, &inputFileSize) || inputFileSize <= 10) {
    g_warning("Input file \"%s\" is not a media file\n", inFile.c_str());
    return fail("Input file is not a media file");
  }
  if (outFile.empty()) {
    g_warning("Missing output file");
    return fail("Missing output file");
  }
  if (outFile.size() < 4) {
    g_warning("Error output file name \"%s\"", outFile.c_str());
    return fail("Output file name is not a media file");
  }
  outputExtension = outFile.substr(outFile.size() - 4);
  return true;
}

bool MpegTranscodeNative::prepareCopy() {
  if (videoEncoder == kCopy) {
    ignore(&bitrateVideo, "bitrateVideo", "videoEncoder");
    ignore(&maxOutputSize, "maxOutputSize", "videoEncoder");
    ignore(&maxBitrate, "maxBitrate", "videoEncoder");
    if (audioEncoder != kCopy && bitrateAudio == 0) {
      g_warning(
          "when copy video and transcode audio,  bitrateAudio must be explicitly specified\n");
      return fail(
          "when copy video and transcode audio,  bitrateAudio must be explicitly specified");
    }
  }
  if (audioEncoder == kCopy) {
    ignore(&bitrateAudio, "bitrateAudio", "audioEncoder");
    ignore(&maxOutputSize, "maxOutputSize", "audioEncoder");
    ignore(&maxBitrate, "maxBitrate", "audioEncoder");
    if (videoEncoder != kCopy && bitrateVideo == 0) {
      g_warning(
          "when copy audio and transcode video,  bitrateVideo must be explicitly specified\n");
      return fail(
          "when copy audio and transcode video,  bitrateVideo must be explicitly specified");
    }
  }
  return true;
}

bool MpegTranscodeNative::prepareCodecs() {
  const bool is3gp = outputExtension == ".3gp";
  const bool isMp4 = outputExtension == ".mp4";
  if (videoEncoder.empty()) {
    if (!is3gp && !isMp4) {
      g_warning("video encoder not specified\n");
      return fail("video encoder not specified");
    }
    videoEncoder = is3gp ? "h263" : "mpeg4";
  }
  if (audioEncoder.empty()) {
    if (!is3gp && !isMp4) {
      g_warning("audio encoder not specified\n");
      return fail("audio encoder not specified");
    }
    audioEncoder = "aac";
  }
  return true;
}

bool MpegTranscodeNative::fail(const char* errorText) {
  ctx->setLastErrorMessage(errorText);
  return false;
}
