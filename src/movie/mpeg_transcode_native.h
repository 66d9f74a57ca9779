// MpegTranscodeNative is one movie request: its parameters, their checks and the planned bitrates.
//
// Thread: one at a time: the main loop's up to run(), which may move the task to its own.
// Owns: nothing beyond its context; the probe's result is borrowed.
#ifndef SRC_MOVIE_MPEG_TRANSCODE_NATIVE_H
#define SRC_MOVIE_MPEG_TRANSCODE_NATIVE_H

#include <cstdint>
#include <string>

#include "src/framework/transcode_base.h"
#include "src/movie/mpeg_info.h"

class MpegTranscodeNative : public TranscodeBase {
 public:
  explicit MpegTranscodeNative(VSCtx* context) : TranscodeBase(context) {}

  // Reads "inFile" and "outFile", which must be there, and then the optional members. An optional
  // member of the wrong type, or that does not fit, is as good as absent.
  bool parseVSParameters(dsjson::JValue& params) override;

  // prepareParameters() and calculateBitrates(). The parameters are final once this succeeded.
  bool init() override;

  // The number of times the input is read. Here always 1, and no other number is taken.
  virtual void setPasses(int count);
  virtual int getPasses();

  // The input's length in ms, 0 when it was not probed.
  virtual int getOrignalLengthInMs();

  // Checks the files, drops the limits that a copied stream cannot keep, and fills in the codecs
  // that the output file's extension implies. On failure sets the error message and returns false.
  virtual bool prepareParameters();

  // Plans bitrateVideo and bitrateAudio from the limits, and what follows from them for AMR-NB and
  // H.263. On failure sets the error message and returns false; members are then partly updated.
  virtual bool calculateBitrates();

  // What the probe found out about the input; may be null. Never deleted here: with a task that
  // runs on, its worker thread deletes the probe; otherwise whoever set it.
  MpegInfo* mpegInfo = nullptr;

 protected:
  using TranscodeBase::parseVSParameters;

  std::string picSize;        // as ffmpeg's "-s" takes it; "auto" is resolved for H.263
  float videoFrameRate = 0;   // frames per second; 0 is not set
  int32_t startOffsetMs = 0;  // of the clip in the input
  int32_t clipLengthMs = 0;   // 0 or less is to the input's end
  int32_t maxOutputSize = 0;  // bytes; 0 is no limit
  int32_t maxBitrate = 0;     // of both streams, bits per second; 0 is no limit
  std::string videoEncoder;   // "copy" keeps the stream
  std::string audioEncoder;   // "copy" keeps the stream
  int32_t minBitrateVideo = 32000;
  int32_t minBitrateAudio = 4000;
  int32_t bitrateVideo = 0;       // bits per second; 0 is to be planned
  int32_t bitrateAudio = 0;       // bits per second; 0 is to be planned
  int32_t audioSamplingRate = 0;  // Hz; 0 keeps the input's
  int32_t inputFileSize;          // bytes; set by prepareParameters()
  std::string outputExtension;    // the last four characters of outFile

 private:
  bool prepareFiles();
  bool prepareCopy();
  bool prepareCodecs();
  bool planRates();
  bool chooseSizeAndDuration(int32_t* sizeBytes, int32_t* durationMs);
  void splitBitrate(int32_t targetBitrate);
  void snapAmrNb();
  void settleH263();
  bool fail(const char* errorText);
};

#endif
