// The image pipeline of the service, for tests: played to its end as often as wanted.
//
// Thread: the test's.
#ifndef TESTS_GSTREAMER_IMAGE_PIPELINE_H
#define TESTS_GSTREAMER_IMAGE_PIPELINE_H

#include <gst/gst.h>

#include <string>

class ImagePipeline {
 public:
  enum class Outcome { End, Error, TimedOut };
  struct Options {
    bool exif = true;
    bool metadata = true;  // false: without the two elements
    int crop = 0;          // pixels off the right edge, behind the scaler
  };

  ImagePipeline(const std::string& inFile, const std::string& outFile)
      : ImagePipeline(inFile, outFile, Options()) {}
  ImagePipeline(const std::string& inFile, const std::string& outFile, const Options& options);
  ~ImagePipeline();
  ImagePipeline(const ImagePipeline&) = delete;
  ImagePipeline& operator=(const ImagePipeline&) = delete;

  // PLAYING, the end, NULL.
  Outcome encode(int width, int height, int quality);
  // Whether the first error of the last encode was of that domain and code.
  bool failedWith(GQuark domain, int code) const;
  GstElement* element() const { return pipeline; }

 private:
  Outcome waitForEnd();

  GstElement* pipeline;
  GError* error = nullptr;
};

#endif
