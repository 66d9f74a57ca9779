// MpegTranscodeNativeOrrin transcodes a movie with the device's encoders and its MPEG-4 muxer:
//
//   filesrc - decodebin2 - (video) - tarnvideoencoder - sinkVideo
//                        - (audio) - tarnaudioencoder - sinkAudio   tarnmpeg4mux
//
// Encoders and muxer stay disabled until one video and one audio stream are linked. The request's
// sizes and bit rates are not passed on: the encoders have their own defaults.
//
// Thread: the handlers of decodebin2 run on its streaming threads, one at a time; teardown()
// releases what they use once the pipeline is at NULL.
// Owns: a reference to each element, beside the pipeline's. run() releases them, the destructor
// does not.
#ifndef SRC_PIPELINES_MPEG_TRANSCODE_NATIVE_ORRIN_H
#define SRC_PIPELINES_MPEG_TRANSCODE_NATIVE_ORRIN_H

#include "src/pipelines/mpeg_transcode_native_gst.h"

class MpegTranscodeNativeOrrin : public MpegTranscodeNativeGst {
 public:
  using MpegTranscodeNativeGst::MpegTranscodeNativeGst;

  // Returns 0, or -1 with everything released again. -1 also when there is a pipeline already,
  // which is then left as it is.
  int setupPipeline() override;

  // Releases the pipeline and the elements. Always returns true: the elements are given up even
  // when the pipeline could not be stopped.
  bool teardown(int seconds) override;

 protected:
  // "autoplug-continue": always TRUE.
  static gboolean autoplugContinueBindingCallback(GstElement* bin, GstPad* pad, GstCaps* caps,
                                                  void* data);
  // "autoplug-select": 2 (skip) for the device's AMR and MP3 demuxers, known by their long names;
  // 0 (try) for all others.
  static int autoplugSelectBindingCallback(GstElement* bin, GstPad* pad, GstCaps* caps,
                                           GstElementFactory* factory, void* data);
  // "new-decoded-pad": calls newDecodedPadBinding of the task `self`.
  static void newDecodedPadBindingCallback(GstElement* bin, GstPad* pad, int last, void* self);

  // Links the pad to the encoder of its kind, the first of each kind only. With one of each linked
  // it starts and enables the encoders and the muxer.
  void newDecodedPadBinding(GstPad* pad, int last);

  GstBin* decodeBin = nullptr;
  GstElement* fileSource = nullptr;
  GstElement* spareElementA = nullptr;  // never set here
  GstElement* spareElementB = nullptr;  // never set here
  GstElement* videoEncoderElement = nullptr;
  GstElement* audioEncoderElement = nullptr;
  GstElement* muxerElement = nullptr;
  unsigned long newDecodedPadHandlerId = 0;
  unsigned long autoplugContinueHandlerId = 0;
  unsigned long autoplugSelectHandlerId = 0;
  bool videoLinked = false;
  bool audioLinked = false;

 private:
  bool build();
  bool buildSource();
  bool buildEncoders();
  bool linkEncoders();
  void enableEncoders();
};

#endif
