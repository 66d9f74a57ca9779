// Elements under the device's names that record what is done to them, in place of the real ones.
//
// Thread: the test's own.
#ifndef TESTS_PIPELINES_FAKE_ELEMENTS_H
#define TESTS_PIPELINES_FAKE_ELEMENTS_H

#include <gst/gst.h>

#include <functional>
#include <string>
#include <vector>

namespace fake {

// Makes "decodebin2", "tarnvideoencoder", "tarnaudioencoder" and "tarnmpeg4mux" known. Once.
void registerElements();

// What was done, in order: "videoenc enable=0", "videoenc -> PLAYING", "sinkAudio linked".
// An element without a name of its own is called by its factory's.
extern std::vector<std::string> record;

// Elements made from now on lack the pad of this name; empty: they lack none.
extern std::string missingPad;

// Elements refuse to change their state.
extern bool refuseStates;

// Takes a factory out of the registry while it lives.
class WithoutFactory {
 public:
  explicit WithoutFactory(const std::string& name);
  ~WithoutFactory();
  WithoutFactory(const WithoutFactory&) = delete;
  WithoutFactory& operator=(const WithoutFactory&) = delete;

 private:
  GstPluginFeature* feature;
};

// A pad as a decoding bin would announce it; without caps when they are empty, and with nothing
// agreed on when they leave a choice.
class DecodedPad {
 public:
  explicit DecodedPad(const char* caps);
  ~DecodedPad();
  DecodedPad(const DecodedPad&) = delete;
  DecodedPad& operator=(const DecodedPad&) = delete;

  GstPad* get() const { return pad; }
  // "videoenc:sink", or "" when it is not linked.
  std::string peer() const;

 private:
  GstPad* pad;
};

// A pipeline whose answers to state changes are given by the test.
GstElement* newScriptedPipeline(GstStateChangeReturn setResult, GstStateChangeReturn waitResult);
// The time-out that it was waited for with; GST_CLOCK_TIME_NONE before.
extern GstClockTime waitedNs;
// Called when such a pipeline's state is set.
extern std::function<void()> whenStateSet;

}  // namespace fake

#endif
