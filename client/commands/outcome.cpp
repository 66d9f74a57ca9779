#include "client/commands/outcome.h"

#include <cmath>

#include "client/service/service_reply.h"

namespace {

void putBytes(dsjson::JValue* line, const char* name, const std::optional<int64_t>& bytes) {
  if (!bytes) return;
  if (*bytes <= INT32_MAX) {
    line->put(name, static_cast<int32_t>(*bytes));
  } else {
    line->put(name, static_cast<double>(*bytes));
  }
}

template <typename Value>
void putKnown(dsjson::JValue* line, const char* name, const std::optional<Value>& value) {
  if (value) line->put(name, *value);
}

void putText(dsjson::JValue* line, const char* name, const std::string& text) {
  if (!text.empty()) line->put(name, text);
}

double toMilliseconds(double seconds) {
  return std::round(seconds * 1000) / 1000;
}

}  // namespace

bool Outcome::fail(const std::string& reason, ExitCode code) {
  exitCode = code;
  errorText = reason;
  return false;
}

bool Outcome::failWithoutReply(const Answer& answer) {
  return fail(answer.errorText, answer.kind == Answer::NoService ? ExitNoService : ExitFailed);
}

bool Outcome::failForSpace() {
  return fail("there is no space left for " + output +
              ", which is as it was: free some on its disk, or write to another one");
}

bool Outcome::failBySignal(int number) {
  return fail("interrupted, the output is as it was", static_cast<ExitCode>(ExitSignal + number));
}

std::string jsonOf(const Outcome& outcome) {
  dsjson::JValue line = dsjson::Object();
  putText(&line, "input", outcome.input);
  putText(&line, "output", outcome.output);
  line.put("returnValue", outcome.exitCode == ExitDone);
  putText(&line, "kind", outcome.kind);
  putBytes(&line, "inputBytes", outcome.inputBytes);
  putBytes(&line, "outputBytes", outcome.outputBytes);
  putKnown(&line, "width", outcome.width);
  putKnown(&line, "height", outcome.height);
  putBytes(&line, "metadataBytes", outcome.metadataBytes);
  putText(&line, "camera", outcome.camera);
  putKnown(&line, "seconds", outcome.seconds);
  putKnown(&line, "ssim", outcome.similarity);
  line.put("elapsed", toMilliseconds(outcome.elapsed));
  putText(&line, "errorText", outcome.errorText);
  putText(&line, "errorDetail", outcome.errorDetail);
  return requestText(line);
}
