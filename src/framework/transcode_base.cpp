#include "src/framework/transcode_base.h"

bool TranscodeBase::parseVSParameters(dsjson::JValue& params) {
  if (params["inFile"].asString(inFile) != dsjson::CONV_OK) {
    ctx->setLastErrorMessage("Could not parse param inFile");
    return false;
  }
  if (params["outFile"].asString(outFile) != dsjson::CONV_OK) {
    ctx->setLastErrorMessage("Could not parse param outFile");
    return false;
  }
  return true;
}
