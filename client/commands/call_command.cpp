#include <cstdio>

#include "client/commands/commands.h"
#include "client/service/service_call.h"
#include "client/service/service_reply.h"

namespace {

ExitCode sayNoReply(const Answer& answer) {
  sayFailure(answer.errorText);
  return answer.kind == Answer::NoService ? ExitNoService : ExitFailed;
}

// Prints a service's reply and tells by it whether the request succeeded.
ExitCode printReply(const Answer& answer) {
  if (answer.kind != Answer::Replied) return sayNoReply(answer);
  printf("%s\n", answer.payload.c_str());
  bool succeeded = true;  // a reply may say nothing of it: getMinimalBitrate gives a number there
  parseServiceReply(answer.payload).members["returnValue"].asBool(succeeded);
  return succeeded ? ExitDone : ExitFailed;
}

}  // namespace

ExitCode runCall(const Options& options) {
  return printReply(callService(options.words[0], options.words[1]));
}

ExitCode runMinBitrate(const Options& options) {
  const Answer answer = callServiceAgain("getMinimalBitrate", "{}");
  if (answer.kind != Answer::Replied || options.json) return printReply(answer);
  int32_t bitsPerSecond = 0;
  const ServiceReply reply = parseServiceReply(answer.payload);
  if (reply.members["returnValue"].asNumber(bitsPerSecond) != dsjson::CONV_OK) {
    return sayFailure("the service replied " + answer.payload);
  }
  printf("%d bit/s\n", bitsPerSecond);
  return ExitDone;
}
