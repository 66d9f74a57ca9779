#include "client/service/service_call.h"

#include <glib.h>

#include <cstring>
#include <memory>

#include "vela/vela.h"

namespace {

constexpr char kServiceName[] = "com.tarn.transcode";
constexpr char kBusItself[] = "org.freedesktop.DBus";
constexpr guint kWaitingMs = 100;

struct Wait {
  GMainLoop* loop;
  const WhileWaiting& whileWaiting;
  Answer answer;
};

bool isOneOf(const char* name, std::initializer_list<const char*> names) {
  for (const char* candidate : names) {
    if (strcmp(name, candidate) == 0) return true;
  }
  return false;
}

// What the error says, or, where it says nothing, its name.
std::string wordsOf(VSMessage* message) {
  const char* text = VSMessageGetErrorMessage(message);
  return *text != '\0' ? text : VSMessageGetErrorName(message);
}

Answer failed(VSMessage* message) {
  const char* errorName = VSMessageGetErrorName(message);
  if (isOneOf(errorName, {"org.freedesktop.DBus.Error.NoReply"})) {
    if (strcmp(VSMessageGetSender(message), kBusItself) != 0) {
      return {Answer::Silent, "", "the service could not read the file"};
    }
    return {Answer::Died, "", "the service ended while it worked on the request"};
  }
  if (isOneOf(errorName, {"org.freedesktop.DBus.Error.Disconnected"})) {
    return {Answer::Died, "", "the service ended while it worked on the request"};
  }
  if (isOneOf(errorName, {"org.freedesktop.DBus.Error.ServiceUnknown",
                          "org.freedesktop.DBus.Error.NameHasNoOwner"})) {
    return {Answer::NoService, "", notInstalledWords(kServiceName)};
  }
  if (g_str_has_prefix(errorName, "org.freedesktop.DBus.Error.Spawn.")) {
    return {Answer::NoService, "",
            "the service cannot be started: " + wordsOf(message) + "; the bus's log says why"};
  }
  if (isOneOf(errorName, {"org.freedesktop.DBus.Error.UnknownMethod"})) {
    return {Answer::BusError, "",
            "the service has no such method: it has getMinimalBitrate, getMovieInfo, resizeImage, "
            "resizeMovie and scaleImage"};
  }
  return {Answer::BusError, "", "the request was refused: " + wordsOf(message)};
}

bool takeReply(VSHandle*, VSMessage* message, void* data) {
  auto* wait = static_cast<Wait*>(data);
  const bool isReply = VSMessageGetErrorName(message) == nullptr;
  wait->answer =
      isReply ? Answer{Answer::Replied, VSMessageGetPayload(message), ""} : failed(message);
  g_main_loop_quit(wait->loop);
  return true;
}

std::string takeWords(VSError* error) {
  std::string text = error->message == nullptr ? "no reason was given" : error->message;
  VSErrorFree(error);
  return text;
}

gboolean onWaiting(gpointer data) {
  const auto* wait = static_cast<const Wait*>(data);
  if (!wait->whileWaiting()) g_main_loop_quit(wait->loop);
  return G_SOURCE_CONTINUE;
}

void runUntilReply(Wait* wait) {
  const guint source = wait->whileWaiting ? g_timeout_add(kWaitingMs, onWaiting, wait) : 0;
  g_main_loop_run(wait->loop);
  if (source != 0) g_source_remove(source);
}

}  // namespace

std::string notInstalledWords(const std::string& service) {
  return "the service cannot be started: this bus knows no " + service + "; install " + service +
         ".service below a folder of XDG_DATA_DIRS, in dbus-1/services";
}

std::string noBusWords(const std::string& reason) {
  return "there is no message bus: " + reason +
         "; run it as `dbus-run-session -- tarn-transcode ...`";
}

Answer callService(const std::string& method, const std::string& payload,
                   const WhileWaiting& whileWaiting) {
  VSError error;
  VSErrorInit(&error);
  VSHandle* handle = nullptr;
  if (!VSRegisterPubPriv(nullptr, &handle, false, &error)) {
    return {Answer::NoService, "", noBusWords(takeWords(&error))};
  }

  const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop(
      g_main_loop_new(nullptr, FALSE), g_main_loop_unref);
  Wait wait = {loop.get(), whileWaiting, {Answer::GivenUp, "", "the request was given up"}};
  const std::string uri = std::string("tarn://") + kServiceName + "/" + method;
  if (!VSGmainAttach(handle, loop.get(), &error) ||
      !VSCall(handle, uri.c_str(), payload.c_str(), takeReply, &wait, nullptr, &error)) {
    wait.answer = {Answer::BusError, "", "the request cannot be sent: " + takeWords(&error)};
  } else {
    runUntilReply(&wait);
  }
  VSUnregister(handle, nullptr);
  return wait.answer;
}

Answer callServiceAgain(const std::string& method, const std::string& payload,
                        const WhileWaiting& whileWaiting, const std::function<void()>& onRetry) {
  Answer answer = callService(method, payload, whileWaiting);
  if (answer.kind == Answer::Died && (!whileWaiting || whileWaiting())) {
    if (onRetry) onRetry();
    answer = callService(method, payload, whileWaiting);
  }
  return answer;
}
