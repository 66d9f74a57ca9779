// The power service: keeps the device awake while somebody says that he is at work.
//
// "com.tarn.power", category "/com/tarn/power", method activityStart {"id", "duration_ms"}. It is
// started on demand and ends when no activity is left.
#include <cstdlib>
#include <string>

#include "dsjson/dsjson.h"
#include "platform/power/activities.h"
#include "vela/vela.h"

namespace {

constexpr char kName[] = "com.tarn.power";
constexpr char kCategory[] = "/com/tarn/power";
constexpr size_t kLongestId = 100;
// Somebody who started it by hand has so long to ask for something.
constexpr guint kIdleSeconds = 10;

const dsjson::JSchema kAnySchema = dsjson::JSchemaFragment("{}");

std::string textOf(const dsjson::JValue& reply) {
  std::string text;
  dsjson::JGenerator(nullptr).toString(reply, kAnySchema, text);
  return text;
}

// Does what the payload asks for; returns why it cannot, "" when it could.
std::string start(const char* payload, Activities* activities) {
  dsjson::JDomParser parser(nullptr);
  if (!parser.parse(payload, kAnySchema, nullptr)) return "malformed command";
  const dsjson::JValue request = parser.getDom();
  std::string id;
  if (request["id"].asString(id) != dsjson::CONV_OK || id.empty() || id.size() > kLongestId) {
    return "id: a name of 1 to 100 bytes is needed";
  }
  int32_t durationMs = 0;
  if (request["duration_ms"].asNumber(durationMs) != dsjson::CONV_OK || durationMs <= 0) {
    return "duration_ms: a whole number above 0 is needed";
  }
  return activities->start(id, durationMs) ? "" : "too many activities at once";
}

class PowerService {
 public:
  PowerService() : loop(g_main_loop_new(nullptr, FALSE)) {}
  ~PowerService() { g_main_loop_unref(loop); }
  PowerService(const PowerService&) = delete;
  PowerService& operator=(const PowerService&) = delete;

  bool run(VSError* error) {
    VSHandle* handle = nullptr;
    if (!VSRegisterPubPriv(kName, &handle, false, error)) return false;
    const bool serves = VSRegisterCategory(handle, kCategory, kMethods, nullptr, nullptr, error) &&
                        VSCategorySetData(handle, kCategory, this, error) &&
                        VSGmainAttach(handle, loop, error);
    if (serves) {
      g_timeout_add_seconds(kIdleSeconds, endWhenIdle, this);
      g_main_loop_run(loop);
    }
    return VSUnregister(handle, serves ? error : nullptr) && serves;
  }

 private:
  static bool activityStart(VSHandle* handle, VSMessage* message, void* self) {
    return static_cast<PowerService*>(self)->answer(handle, message);
  }
  static gboolean endWhenIdle(gpointer self) {
    static_cast<PowerService*>(self)->endIfIdle();
    return G_SOURCE_REMOVE;
  }

  bool answer(VSHandle* handle, VSMessage* message) {
    const std::string error = start(VSMessageGetPayload(message), &activities);
    dsjson::JValue reply = dsjson::Object().put("returnValue", error.empty());
    if (!error.empty()) reply.put("errorText", error);
    VSMessageReply(handle, message, textOf(reply).c_str(), nullptr);
    endIfIdle();
    return true;
  }
  void endIfIdle() {
    if (activities.none()) g_main_loop_quit(loop);
  }

  static constexpr VSMethod kMethods[] = {{"activityStart", activityStart, 0}, {}};

  GMainLoop* loop;
  Activities activities{[this] { g_main_loop_quit(loop); }};
};

}  // namespace

int main() {
  VSError error;
  VSErrorInit(&error);
  if (PowerService().run(&error)) return EXIT_SUCCESS;
  VSErrorPrint(&error, stderr);
  VSErrorFree(&error);
  return EXIT_FAILURE;
}
