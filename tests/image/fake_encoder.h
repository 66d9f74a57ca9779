// A "jpegenc" whose output is as large as the test says, to drive the search exactly.
#ifndef TESTS_IMAGE_FAKE_ENCODER_H
#define TESTS_IMAGE_FAKE_ENCODER_H

#include <gst/gst.h>

#include <functional>
#include <string>
#include <vector>

struct EncodeAttempt {
  int width;
  int height;
  int quality;
  bool operator==(const EncodeAttempt&) const = default;
};

// What the encoder of that name does and did; for all its elements.
struct FakeEncoder {
  // The bytes of an attempt; 0 lets the encoder fail with an error message.
  std::function<int(const EncodeAttempt&)> sizeBytes;
  std::vector<EncodeAttempt> attempts;
  // Each quality set, with the size that the caps filter "dimens" beside it had at that moment.
  std::vector<EncodeAttempt> qualitySettings;
  // Called at each attempt with the pipeline, from a streaming thread.
  std::function<void(GstBin*)> onEncode;
};
extern FakeEncoder gFakeEncoder;

// Takes the place of the real "jpegenc" while it lives. Without an integer property "quality" the
// attempts carry -1.
class FakeEncoderFactory {
 public:
  explicit FakeEncoderFactory(bool withQuality);
  ~FakeEncoderFactory();
  FakeEncoderFactory(const FakeEncoderFactory&) = delete;
  FakeEncoderFactory& operator=(const FakeEncoderFactory&) = delete;

 private:
  GstPluginFeature* real;
};

#endif
