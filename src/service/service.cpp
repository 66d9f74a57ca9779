#include "src/service/service.h"

#include "src/service/inactivity_timer.h"
#include "src/service/transcode_server.h"

GMainLoop* gMainLoop;
TranscodeServer* gTranscodeServer;

namespace {

const unsigned int kTickMs = 5000;

const VSMethod methods[] = {
    {"scaleImage", TranscodeServer::scaleImage, 0},
    {"resizeImage", TranscodeServer::resizeImage, 0},
    {"resizeMovie", TranscodeServer::resizeMovie, 0},
    {"getMovieInfo", TranscodeServer::getMovieInfo, 0},
    {"getMinimalBitrate", TranscodeServer::getMinimalBitrate, 0},
    {nullptr, nullptr, 0},
};

// Everything between registration and the running loop. On failure the record is filled; *handle
// is null when the registration itself failed.
bool startService(VSHandle** handle, VSError* error) {
  if (!VSRegisterPubPriv("com.tarn.transcode", handle, false, error)) return false;
  gInactivityStatus.handle = *handle;
  StartInactivityTimer(&gInactivityStatus, kTickMs);

  g_debug("Register methods gTranscodeServer %p", static_cast<void*>(gTranscodeServer));
  if (!VSRegisterCategory(*handle, "/", methods, nullptr, nullptr, error)) return false;
  if (!VSCategorySetData(*handle, "/", gTranscodeServer, error)) return false;

  g_debug("VSGmainAttach");
  return VSGmainAttach(*handle, gMainLoop, error);
}

}  // namespace

int registerVelaService() {
  VSHandle* handle = nullptr;
  VSError error;
  VSErrorInit(&error);
  g_debug("+ %s:", "int registerVelaService()");

  gMainLoop = g_main_loop_new(nullptr, FALSE);
  if (gMainLoop == nullptr) return unregisterVelaService(handle);
  gTranscodeServer = new TranscodeServer(gMainLoop);

  if (startService(&handle, &error)) {
    g_main_loop_run(gMainLoop);
    g_main_loop_unref(gMainLoop);
    delete gTranscodeServer;
  } else {
    VSErrorPrint(&error, stderr);
    VSErrorFree(&error);
  }
  return unregisterVelaService(handle);
}

int unregisterVelaService(VSHandle* handle) {
  g_debug("%s", "unregisterVelaService");
  if (handle == nullptr) return -1;

  VSError error;
  VSErrorInit(&error);
  const bool succeeded = VSUnregister(handle, &error);
  if (!succeeded) {
    VSErrorPrint(&error, stderr);
    VSErrorFree(&error);
  }
  return succeeded ? 1 : 0;
}

GMainContext* GetMainLoopContext() {
  return g_main_loop_get_context(gMainLoop);
}
