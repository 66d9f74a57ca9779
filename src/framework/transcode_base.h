// TranscodeBase is a task that makes one file out of another.
#ifndef SRC_FRAMEWORK_TRANSCODE_BASE_H
#define SRC_FRAMEWORK_TRANSCODE_BASE_H

#include <string>

#include "src/framework/task_base.h"

class TranscodeBase : public TaskBase {
 public:
  explicit TranscodeBase(VSCtx* context) : TaskBase(context) {}

  // Reads "inFile" and "outFile". The paths themselves are not checked here.
  bool parseVSParameters(dsjson::JValue& params) override;

 protected:
  using TaskBase::parseVSParameters;

  std::string inFile;
  std::string outFile;
};

#endif
