#include <cstdio>

#include "client/commands/arguments.h"
#include "client/commands/commands.h"
#include "client/service/service_reply.h"

namespace {

// Prints a service's reply and tells by it whether the request succeeded.
ExitCode printReply(const Answer& answer) {
  if (answer.kind != Answer::Replied) return sayNoReply(answer);
  printf("%s\n", answer.payload.c_str());
  bool succeeded = true;  // a reply may say nothing of it: getMinimalBitrate gives a number there
  parseServiceReply(answer.payload).members["returnValue"].asBool(succeeded);
  return succeeded ? ExitDone : ExitFailed;
}

}  // namespace

ExitCode runCall(const std::vector<std::string>& words) {
  const Arguments arguments(words, {}, {});
  if (!arguments.errorText().empty()) return sayUsage(arguments.errorText());
  if (arguments.positional().size() != 2) return sayUsage("call needs METHOD and JSON");
  return printReply(callService(arguments.positional()[0], arguments.positional()[1]));
}

ExitCode runMinBitrate(const std::vector<std::string>& words) {
  const Arguments arguments(words, {}, {"--json"});
  if (!arguments.errorText().empty()) return sayUsage(arguments.errorText());
  if (!arguments.positional().empty()) return sayUsage("min-bitrate takes no words");

  const Answer answer = callServiceAgain("getMinimalBitrate", "{}");
  if (answer.kind != Answer::Replied || arguments.has("--json")) return printReply(answer);
  int32_t bitsPerSecond = 0;
  const ServiceReply reply = parseServiceReply(answer.payload);
  if (reply.members["returnValue"].asNumber(bitsPerSecond) != dsjson::CONV_OK) {
    return sayFailure("the service replied " + answer.payload);
  }
  printf("%d bit/s\n", bitsPerSecond);
  return ExitDone;
}
