// Feeds any bytes to what libvela makes of a D-Bus message and of a method's address.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/vela/introspection.h"
#include "platform/vela/message.h"
#include "platform/vela/method_table.h"
#include "platform/vela/uri.h"

namespace {

bool refuse(VSHandle*, VSMessage*, void*) {
  return false;
}

const VSMethod kMethods[] = {{"resizeImage", refuse, 0}, {}};

void readAddress(const std::string& text) {
  const auto uri = vela::Uri::parse(text);
  if (!uri) return;
  // A call to it can be made.
  const vela::GlibRef<GDBusMessage> call(g_dbus_message_new_method_call(
      uri->service.c_str(), uri->category.c_str(), uri->service.c_str(), uri->method.c_str()));
  if (call == nullptr) abort();
}

void readRequest(GDBusMessage* bytes) {
  static const auto open = std::make_shared<vela::OpenRequests>(g_main_context_default());
  static vela::MethodTable table("com.example.vela");
  static const bool added = table.add("/", kMethods, nullptr);
  if (!added) abort();
  const vela::MessageRef request(new VSMessage(bytes, nullptr, open));
  const auto target = table.find(request->path(), request->interface(), request->member());
  if (target.method == nullptr) vela::answerStandardCall(table, *request);
  if (request->hasOneText() && strlen(request->payload()) > 0 && !request->hasArguments()) abort();
  // Handed over, it stays the same call.
  const vela::GlibRef<GDBusMessage> again = request->callOf("com.example.vela");
  const char* text = vela::onlyText(again.get());
  if (request->hasOneText() != (text != nullptr)) abort();
  if (text != nullptr && strcmp(text, request->payload()) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  readAddress({reinterpret_cast<const char*>(data), size});
  std::string copy(reinterpret_cast<const char*>(data), size);
  const vela::GlibRef<GDBusMessage> message(
      g_dbus_message_new_from_blob(reinterpret_cast<guchar*>(copy.data()), copy.size(),
                                   G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
  if (message == nullptr) return 0;
  switch (g_dbus_message_get_message_type(message.get())) {
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
      readRequest(message.get());
      break;
    case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
    case G_DBUS_MESSAGE_TYPE_ERROR: {
      const vela::MessageRef reply(new VSMessage(message.get()));
      if ((reply->error() == nullptr) != reply->hasOneText()) abort();
      break;
    }
    default:
      break;
  }
  return 0;
}
