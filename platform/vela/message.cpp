#include "platform/vela/message.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/vela/error_record.h"
#include "platform/vela/limits.h"

namespace {

constexpr char kInvalidSignature[] = "org.freedesktop.DBus.Error.InvalidSignature";

bool silentOnDrop() {
  const char* variable = getenv("VELA_NOREPLY");
  return variable != nullptr && std::string_view(variable) == "silent";
}

// What an error reply says to people: by the custom of the bus its first argument.
std::string firstText(GDBusMessage* reply) {
  GVariant* body = g_dbus_message_get_body(reply);
  if (body == nullptr || g_variant_n_children(body) == 0) return "";
  g_autoptr(GVariant) first = g_variant_get_child_value(body, 0);
  const bool isText = g_variant_is_of_type(first, G_VARIANT_TYPE_STRING) != FALSE;
  return isText ? g_variant_get_string(first, nullptr) : "";
}

bool wantsReply(GDBusMessage* request) {
  return (g_dbus_message_get_flags(request) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
}

}  // namespace

namespace vela {

const char* onlyText(GDBusMessage* message) {
  GVariant* body = g_dbus_message_get_body(message);
  if (body == nullptr || !g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
    return nullptr;
  }
  const char* text = nullptr;
  g_variant_get(body, "(&s)", &text);
  return text;
}

}  // namespace vela

VSMessage::VSMessage(GDBusMessage* request, std::shared_ptr<vela::BusLink> ownLink,
                     std::shared_ptr<vela::OpenRequests> openRequests)
    : bus(G_DBUS_MESSAGE(g_object_ref(request))),
      text(vela::onlyText(request)),
      link(std::move(ownLink)),
      open(std::move(openRequests)),
      counted(true) {
  open->began();
}

VSMessage::VSMessage(GDBusMessage* reply)
    : bus(G_DBUS_MESSAGE(g_object_ref(reply))), text(vela::onlyText(reply)) {
  if (g_dbus_message_get_message_type(reply) == G_DBUS_MESSAGE_TYPE_ERROR) {
    text = nullptr;
    errorName = g_dbus_message_get_error_name(reply);
    errorText = firstText(reply);
  } else if (text == nullptr) {
    errorName = kInvalidSignature;
    errorText = "The reply is not exactly one string";
  }
}

VSMessage::~VSMessage() {
  if (link != nullptr && !silentOnDrop()) {
    answerError(vela::kNoReply, "The service ended the request without a reply");
  }
  stopCounting();
}

void VSMessage::unref() {
  if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete this;
  }
}

const char* VSMessage::sender() const {
  const char* name = bus != nullptr ? g_dbus_message_get_sender(bus.get()) : nullptr;
  return name != nullptr ? name : "";
}

void VSMessage::stopCounting() {
  if (counted.exchange(false)) {
    open->ended();
  }
}

bool VSMessage::claim(VSError* error) {
  if (link == nullptr) {
    return vela::fail(error, vela::kInvalidArgs, "the message is no request");
  }
  return !answered.exchange(true) ||
         vela::fail(error, vela::kFailed, "the request is answered already");
}

bool VSMessage::refuseOversized(VSError* error) {
  const std::string description =
      "the reply is larger than " + std::to_string(vela::kMaxReplyBytes) + " bytes";
  sendErrorReply(vela::kLimitsExceeded, description, nullptr);
  return vela::fail(error, vela::kLimitsExceeded, description);
}

bool VSMessage::answer(const char* replyText, VSError* error) {
  if (!claim(error)) {
    return false;
  }
  g_autofree char* valid = g_utf8_make_valid(replyText, -1);
  if (strlen(valid) > vela::kMaxReplyBytes) {
    return refuseOversized(error);
  }
  GVariant* string = g_variant_new_take_string(g_steal_pointer(&valid));
  return sendReply(g_variant_new_tuple(&string, 1), error);
}

bool VSMessage::answerEmpty(VSError* error) {
  return claim(error) && sendReply(nullptr, error);
}

bool VSMessage::sendReply(GVariant* body, VSError* error) {
  g_autoptr(GVariant) held = body != nullptr ? g_variant_ref_sink(body) : nullptr;
  if (!wantsReply(bus.get())) {
    return true;
  }
  g_autoptr(GDBusMessage) reply = g_dbus_message_new_method_reply(bus.get());
  if (held != nullptr) {
    g_dbus_message_set_body(reply, held);
  }
  return link->sendAndFlush(reply, error);
}

void VSMessage::relay(GDBusMessage* outcome) {
  if (claim(nullptr) && wantsReply(bus.get())) {
    const bool failed = g_dbus_message_get_message_type(outcome) == G_DBUS_MESSAGE_TYPE_ERROR;
    const vela::GlibRef<GDBusMessage> reply(
        failed ? g_dbus_message_new_method_error_literal(bus.get(),
                                                         g_dbus_message_get_error_name(outcome), "")
               : g_dbus_message_new_method_reply(bus.get()));
    g_dbus_message_set_body(reply.get(), g_dbus_message_get_body(outcome));
    link->send(reply.get(), nullptr, nullptr);
  }
  stopCounting();
}

void VSMessage::refuse(const char* name, const std::string& description) {
  if (claim(nullptr) && wantsReply(bus.get())) {
    const vela::GlibRef<GDBusMessage> reply(
        g_dbus_message_new_method_error_literal(bus.get(), name, description.c_str()));
    link->send(reply.get(), nullptr, nullptr);
  }
  stopCounting();
}

vela::GlibRef<GDBusMessage> VSMessage::callOf(const std::string& service) const {
  vela::GlibRef<GDBusMessage> call(
      g_dbus_message_new_method_call(service.c_str(), path(), interface(), member()));
  g_dbus_message_set_body(call.get(), g_dbus_message_get_body(bus.get()));
  return call;
}

bool VSMessage::answerError(const char* name, const std::string& description, VSError* error) {
  return claim(error) && sendErrorReply(name, description, error);
}

bool VSMessage::sendErrorReply(const char* name, const std::string& description, VSError* error) {
  if (!wantsReply(bus.get())) {
    return true;
  }
  g_autoptr(GDBusMessage) reply =
      g_dbus_message_new_method_error_literal(bus.get(), name, description.c_str());
  return link->sendAndFlush(reply, error);
}
