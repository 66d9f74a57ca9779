// The part of MpegTranscodeNative that turns limits into bitrates.
#include <glib.h>

#include <algorithm>
#include <iterator>

#include "src/framework/int32.h"
#include "src/movie/extended_arithmetic.h"
#include "src/movie/mpeg_transcode_native.h"

namespace {

constexpr int32_t kMaxBitrateVideo = 8000000;
constexpr int32_t kMaxBitrateAudio = 256000;
constexpr int32_t kLowestAmrNb = 4750;
constexpr int32_t kH263Threshold = 300000;  // below, a phone's picture and frame rate

// The modes of AMR-NB, bits per second.
const int32_t amrnb_candidates[] = {12200, 10200, 7950, 7400, 6700, 5900, 5150, kLowestAmrNb, 0};

// What a stream gets of the wish. The upper bound goes first.
int32_t clamped(int32_t wish, int32_t low, int32_t high) {
  return wish > high ? high : std::max(wish, low);
}

}  // namespace

int MpegTranscodeNative::getOrignalLengthInMs() {
  return mpegInfo == nullptr ? 0 : mpegInfo->clipLength;
}

bool MpegTranscodeNative::calculateBitrates() {
  const bool copies = audioEncoder == "copy" || videoEncoder == "copy";
  const bool isPlanned = bitrateAudio != 0 && bitrateVideo != 0;
  if (!copies && !isPlanned && !planRates()) return false;
  if (audioEncoder == "amrnb") snapAmrNb();
  if (videoEncoder == "h263") settleH263();

  g_message("Transcode parameters %s -> %s , maxOutputSize = %d\n", inFile.c_str(), outFile.c_str(),
            maxOutputSize);
  g_message("audioEncoder %s %d\n videoEncoder %s %d \n", audioEncoder.c_str(), bitrateAudio,
            videoEncoder.c_str(), bitrateVideo);
  return true;
}

bool MpegTranscodeNative::planRates() {
  int32_t sizeBytes;
  int32_t durationMs;
  if (!chooseSizeAndDuration(&sizeBytes, &durationMs)) return false;

  int32_t total = extendedBitrate(sizeBytes, durationMs);
  if (maxBitrate != 0) total = std::min(total, maxBitrate);
  // The container takes its share.
  const int32_t targetBitrate = extendedProduct(total, 0.96);

  splitBitrate(targetBitrate);
  if (targetBitrate < bitrateVideo + bitrateAudio) {
    g_warning("can't reach targetBitrate, maxOutputSize too small?\n");
    return fail("can't reach targetBitrate, maxOutputSize too small?\n");
  }
  return true;
}

bool MpegTranscodeNative::chooseSizeAndDuration(int32_t* sizeBytes, int32_t* durationMs) {
  *sizeBytes = maxOutputSize != 0 ? maxOutputSize : inputFileSize;
  if (maxOutputSize != 0 && clipLengthMs >= 1) {
    *durationMs = clipLengthMs;
    return true;
  }
  *durationMs = getOrignalLengthInMs();
  if (*durationMs < 1) {
    g_warning("getOrignalLengthInMs() failed\n");
    return fail("getOrignalLengthInMs() failed\n");
  }
  return true;
}

// A rate that the caller fixed comes first; else audio gets a tenth. The other stream gets the
// rest.
void MpegTranscodeNative::splitBitrate(int32_t targetBitrate) {
  if (bitrateVideo != 0) {
    bitrateVideo = clamped(bitrateVideo, minBitrateVideo, kMaxBitrateVideo);
    bitrateAudio = clamped(targetBitrate - bitrateVideo, minBitrateAudio, kMaxBitrateAudio);
    return;
  }
  if (bitrateAudio == 0) bitrateAudio = targetBitrate / 10;
  bitrateAudio = clamped(bitrateAudio, minBitrateAudio, kMaxBitrateAudio);
  bitrateVideo = clamped(targetBitrate - bitrateAudio, minBitrateVideo, kMaxBitrateVideo);
}

// Moves audio down to a mode of the codec, or up to its lowest; video takes the difference.
void MpegTranscodeNative::snapAmrNb() {
  const int32_t* mode = std::find_if(std::begin(amrnb_candidates), std::end(amrnb_candidates) - 1,
                                     [this](int32_t rate) { return rate <= bitrateAudio; });
  const int32_t snapped = *mode != 0 ? *mode : kLowestAmrNb;
  bitrateVideo = wrappedSum(bitrateVideo, wrappedSum(bitrateAudio, -snapped));
  bitrateAudio = snapped;
}

void MpegTranscodeNative::settleH263() {
  const bool isSlow = bitrateVideo < kH263Threshold;
  if (videoFrameRate <= 0) videoFrameRate = isSlow ? 15.0F : 0.0F;
  if (picSize == "auto") picSize = isSlow ? "qcif" : "cif";
}
