// The C interface: checks what it is given and hands on.
#include "vela/vela.h"

#include "platform/vela/error_record.h"
#include "platform/vela/handle.h"
#include "platform/vela/message.h"
#include "platform/vela/uri.h"

using vela::fail;

namespace {

bool noHandle(VSError* error) {
  return fail(error, vela::kInvalidArgs, "no handle");
}

}  // namespace

bool VSRegisterPubPriv(const char* name, VSHandle** handle, bool publicBus, VSError* error) {
  if (handle == nullptr) {
    return noHandle(error);
  }
  *handle = nullptr;
  if (name != nullptr && (!g_dbus_is_name(name) || g_dbus_is_unique_name(name))) {
    return fail(error, vela::kInvalidArgs, std::string("no service name: ") + name);
  }
  *handle = VSHandle::open(name != nullptr ? name : "", publicBus, error);
  return *handle != nullptr;
}

bool VSRegisterCategory(VSHandle* handle, const char* category, const VSMethod* methods,
                        const VSSignal*, const VSProperty*, VSError* error) {
  return handle != nullptr ? handle->methods().add(category, methods, error) : noHandle(error);
}

bool VSCategorySetData(VSHandle* handle, const char* category, void* data, VSError* error) {
  return handle != nullptr ? handle->methods().setData(category, data, error) : noHandle(error);
}

bool VSGmainAttach(VSHandle* handle, GMainLoop* loop, VSError* error) {
  if (handle == nullptr) {
    return noHandle(error);
  }
  return loop != nullptr ? handle->attach(loop, error)
                         : fail(error, vela::kInvalidArgs, "no main loop");
}

bool VSUnregister(VSHandle* handle, VSError* error) {
  return handle != nullptr ? handle->unregister(error) : noHandle(error);
}

bool VSCall(VSHandle* handle, const char* uri, const char* payload, VSMethodFunction callback,
            void* data, VSMessageToken* token, VSError* error) {
  if (handle == nullptr) {
    return noHandle(error);
  }
  const auto parsed = vela::Uri::parse(uri != nullptr ? uri : "");
  if (!parsed) {
    return fail(error, vela::kInvalidArgs,
                std::string("no method address: ") + (uri != nullptr ? uri : "(null)"));
  }
  return handle->call(*parsed, payload != nullptr ? payload : "", {callback, data}, token, error);
}

void VSMessageRef(VSMessage* message) {
  if (message != nullptr) {
    message->ref();
  }
}

void VSMessageUnref(VSMessage* message) {
  if (message != nullptr) {
    message->unref();
  }
}

const char* VSMessageGetPayload(VSMessage* message) {
  return message != nullptr ? message->payload() : "";
}

const char* VSMessageGetErrorName(VSMessage* message) {
  return message != nullptr ? message->error() : nullptr;
}

const char* VSMessageGetErrorMessage(VSMessage* message) {
  return message != nullptr ? message->errorMessage() : nullptr;
}

const char* VSMessageGetSender(VSMessage* message) {
  return message != nullptr ? message->sender() : "";
}

// The message knows its connection; the handle may be gone by now.
bool VSMessageReply(VSHandle*, VSMessage* message, const char* payload, VSError* error) {
  if (message == nullptr || payload == nullptr) {
    return fail(error, vela::kInvalidArgs, message == nullptr ? "no message" : "no payload");
  }
  return message->answer(payload, error);
}
