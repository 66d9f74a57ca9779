#include "src/framework/vs_ctx.h"

using dsjson::JDomParser;
using dsjson::JGenerator;
using dsjson::JSchema;
using dsjson::JSchemaFragment;
using dsjson::JValue;

const JSchema emptySchema = JSchemaFragment("{}");
const char* const syssnd_string_success = R"({"returnValue":true})";

VSCtx::VSCtx(VSHandle* busHandle, VSMessage* request) : handle(busHandle), message(request) {
  if (message != nullptr) VSMessageRef(message);
}

VSCtx::~VSCtx() {
  if (message != nullptr) VSMessageUnref(message);
}

void VSCtx::setLastErrorMessage(const char* text) {
  lastErrorMessage = text;
}

void VSCtx::setLastErrorDetail(const char* text) {
  lastErrorDetail = text;
}

bool VSCtx::parseVSParameters(JValue& out) {
  const std::string payload = VSMessageGetPayload(message);
  JDomParser parser(nullptr);
  if (!parser.parse(payload, emptySchema, nullptr)) {
    setLastErrorMessage("malformed command\n");
    return false;
  }
  out = parser.getDom();
  return true;
}

void VSCtx::reply(const char* payload) {
  VSError error;
  VSErrorInit(&error);
  VSMessageReply(handle, message, payload, &error);
  VSErrorFree(&error);
}

void VSCtx::reply(const JValue& value) {
  JGenerator generator(nullptr);
  std::string text;
  if (!generator.toString(value, emptySchema, text)) {
    g_warning("Json serializer failed");
    return;
  }
  reply(text.c_str());
}

void VSCtx::replySuccess() {
  reply(syssnd_string_success);
}

void VSCtx::replyFail() {
  JValue failure = dsjson::Object();
  failure.put("returnValue", false);
  if (!lastErrorMessage.empty()) failure.put("errorText", lastErrorMessage);
  if (!lastErrorDetail.empty()) failure.put("errorDetail", lastErrorDetail);
  reply(failure);
}
