// A task of the back end for two files, without a request.
#ifndef TESTS_PIPELINES_FILE_TRANSCODE_H
#define TESTS_PIPELINES_FILE_TRANSCODE_H

#include <functional>
#include <string>

#include "src/pipelines/mpeg_transcode_native_orrin.h"

class FileTranscode : public MpegTranscodeNativeOrrin {
 public:
  FileTranscode(const std::string& in, const std::string& out) : MpegTranscodeNativeOrrin(nullptr) {
    inFile = in;
    outFile = out;
  }

  int setupPipeline() override {
    const int result = MpegTranscodeNativeOrrin::setupPipeline();
    if (result == 0 && whenBuilt) whenBuilt(*this);
    return result;
  }

  using MpegTranscodeNativeOrrin::autoplugSelectBindingCallback;
  using MpegTranscodeNativeOrrin::decodeBin;
  using MpegTranscodeNativeOrrin::pipeline;

  std::function<void(FileTranscode&)> whenBuilt;
};

// Whether the log has a line that reports an error on the bus.
inline bool reportsError(const std::vector<std::string>& messages) {
  for (const std::string& line : messages) {
    if (line.rfind("Error: ", 0) == 0) return true;
  }
  return false;
}

#endif
