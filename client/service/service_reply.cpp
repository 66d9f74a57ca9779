#include "client/service/service_reply.h"

namespace {

const dsjson::JSchema kAnySchema = dsjson::JSchemaFragment("{}");

std::string trimmed(const dsjson::JValue& value) {
  constexpr char kBlanks[] = " \t\r\n";
  std::string text;
  value.asString(text);
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

ServiceReply parseServiceReply(const std::string& payload) {
  ServiceReply reply;
  dsjson::JDomParser parser(nullptr);
  if (!parser.parse(payload, kAnySchema, nullptr)) return reply;
  reply.members = parser.getDom();
  reply.members["returnValue"].asBool(reply.succeeded);
  reply.errorText = trimmed(reply.members["errorText"]);
  reply.errorDetail = trimmed(reply.members["errorDetail"]);
  return reply;
}

std::string requestText(const dsjson::JValue& request) {
  std::string text;
  dsjson::JGenerator(nullptr).toString(request, kAnySchema, text);
  return text;
}
