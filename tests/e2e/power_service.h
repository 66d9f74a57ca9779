// The power service, in the test's own process; runs while the default context does.
#ifndef TESTS_E2E_POWER_SERVICE_H
#define TESTS_E2E_POWER_SERVICE_H

#include <cstdlib>
#include <string>
#include <vector>

#include "vela/vela.h"

// What the daemon asks of it.
inline constexpr char kKeepAlive[] = "{ \"id\": \"transcode\", \"duration_ms\" : 7500 }";

class PowerService {
 public:
  explicit PowerService(const std::string& busAddress) {
    g_setenv("DBUS_SESSION_BUS_ADDRESS", busAddress.c_str(), TRUE);
    loop = g_main_loop_new(nullptr, FALSE);
    VSError error;
    if (!VSRegisterPubPriv("com.tarn.power", &handle, false, &error) ||
        !VSRegisterCategory(handle, "/com/tarn/power", kMethods, nullptr, nullptr, &error) ||
        !VSCategorySetData(handle, "/com/tarn/power", this, &error) ||
        !VSGmainAttach(handle, loop, &error)) {
      VSErrorPrint(&error, stderr);
      abort();
    }
  }
  ~PowerService() {
    VSUnregister(handle, nullptr);
    g_main_loop_unref(loop);
  }
  PowerService(const PowerService&) = delete;
  PowerService& operator=(const PowerService&) = delete;

  std::vector<std::string> payloads;

 private:
  static bool activityStart(VSHandle* service, VSMessage* message, void* self) {
    static_cast<PowerService*>(self)->payloads.emplace_back(VSMessageGetPayload(message));
    return VSMessageReply(service, message, R"({"returnValue":true})", nullptr);
  }
  static constexpr VSMethod kMethods[] = {{"activityStart", activityStart, 0}, {}};

  GMainLoop* loop;
  VSHandle* handle = nullptr;
};

#endif
