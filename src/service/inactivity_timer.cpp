#include "src/service/inactivity_timer.h"

#include <cstdlib>

#include "src/service/transcode_server.h"

tagINACTIVITY_STATUS gInactivityStatus;

namespace {

constexpr char kActivityId[] = "transcode";
constexpr char kActivityStart[] = "tarn://com.tarn.power/com/tarn/power/activityStart";

// Half an interval longer than the interval, so that one keep-alive lasts into the next.
void keepAlive(tagINACTIVITY_STATUS* status) {
  char payload[100];
  g_snprintf(payload, sizeof payload, R"({ "id": "%s", "duration_ms" : %d })", kActivityId,
             status->intervalMs * 3 / 2);
  VSError error;
  if (!VSCall(status->handle, kActivityStart, payload, nullptr, nullptr, nullptr, &error)) {
    g_critical("activity Start '%s' failed !!", kActivityId);
    VSErrorPrint(&error, stderr);
    VSErrorFree(&error);
  }
}

}  // namespace

bool StartInactivityTimer(tagINACTIVITY_STATUS* status, unsigned int intervalMs) {
  g_debug("----> %s", __func__);
  if (status == nullptr || intervalMs == 0) return false;

  status->intervalMs = intervalMs;
  status->source = g_timeout_source_new(intervalMs);
  if (status->source == nullptr) {
    g_debug("----> %s: %d: Failure creating timer object\n", __func__, 206);
    StopInactivityTimer(status);
    return false;
  }
  g_source_set_callback(status->source, CallbackInactivityTimeout, status, nullptr);
  status->sourceId = g_source_attach(status->source, nullptr);
  keepAlive(status);
  return true;
}

bool StopInactivityTimer(tagINACTIVITY_STATUS* status) {
  g_debug("----> %s", __func__);
  if (status == nullptr) return false;
  if (status->source == nullptr) return true;

  g_source_destroy(status->source);
  status->source = nullptr;
  status->sourceId = 0;
  return true;
}

gboolean CallbackInactivityTimeout(gpointer data) {
  auto* status = static_cast<tagINACTIVITY_STATUS*>(data);
  g_debug("----> %s\n", __func__);
  if (TranscodeServer::taskCount != 0) {
    keepAlive(status);
    return TRUE;
  }

  StopInactivityTimer(status);
  g_debug("----> Timeout expired, TranscodeService is found inactive and shall be suspended\n");
  VSError error;
  VSErrorInit(&error);
  VSUnregister(status->handle, &error);
  exit(0);
}
