#include "platform/vela/receiver.h"

#include <cstring>
#include <utility>

#include "platform/vela/error_record.h"
#include "platform/vela/limits.h"

namespace vela {

namespace {

size_t bodyBytes(GDBusMessage* request) {
  const char* text = onlyText(request);
  if (text != nullptr) {
    return strlen(text);
  }
  GVariant* body = g_dbus_message_get_body(request);
  return body != nullptr ? g_variant_get_size(body) : 0;
}

// Descriptors that came along are of no use and must not be held while the request waits. What
// arrives is locked, so a copy gives them up.
GDBusMessage* withoutDescriptors(GDBusMessage* request) {
  if (g_dbus_message_get_unix_fd_list(request) == nullptr) {
    return G_DBUS_MESSAGE(g_object_ref(request));
  }
  GDBusMessage* copy = g_dbus_message_copy(request, nullptr);
  g_dbus_message_set_unix_fd_list(copy, nullptr);
  return copy;
}

}  // namespace

guint Receiver::install(const std::shared_ptr<BusLink>& link, std::shared_ptr<Inbox> inbox,
                        std::shared_ptr<Handover> handover, std::shared_ptr<PendingCalls> calls,
                        std::shared_ptr<OpenRequests> open) {
  auto* receiver = new Receiver;
  receiver->weakLink = link;
  receiver->inbox = std::move(inbox);
  receiver->handover = std::move(handover);
  receiver->calls = std::move(calls);
  receiver->open = std::move(open);
  return g_dbus_connection_add_filter(link->connection(), onMessage, receiver,
                                      [](gpointer data) { delete static_cast<Receiver*>(data); });
}

void Receiver::uninstall(BusLink& link, guint id) {
  g_dbus_connection_remove_filter(link.connection(), id);
}

GDBusMessage* Receiver::onMessage(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                  gpointer data) noexcept {
  if (!incoming || !static_cast<Receiver*>(data)->receive(message)) {
    return message;
  }
  g_object_unref(message);
  return nullptr;
}

bool Receiver::receive(GDBusMessage* message) {
  switch (g_dbus_message_get_message_type(message)) {
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
      return receiveRequest(message);
    case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
    case G_DBUS_MESSAGE_TYPE_ERROR:
      return receiveOutcome(message);
    default:
      return false;
  }
}

bool Receiver::receiveRequest(GDBusMessage* request) {
  const std::shared_ptr<BusLink> link = weakLink.lock();
  if (link == nullptr) {
    return true;
  }
  const size_t body = bodyBytes(request);
  const size_t path = strlen(g_dbus_message_get_path(request));
  if (body > kMaxRequestBytes || path > kMaxRequestBytes) {
    refuse(*link, request, "The request is too large");
  } else if (!inbox->hasRoomFor(body + path) || !handover->hasRoomFor(body + path)) {
    refuse(*link, request, "Too many requests are waiting");
  } else {
    g_autoptr(GDBusMessage) bare = withoutDescriptors(request);
    MessageRef message(new VSMessage(bare, link, open));
    if (!inbox->addRequest(message, body + path)) handover->add(std::move(message), body + path);
  }
  return true;
}

bool Receiver::receiveOutcome(GDBusMessage* reply) {
  if (handover->relay(reply)) return true;
  const std::optional<Callback> callback = calls->take(g_dbus_message_get_reply_serial(reply));
  if (!callback) {
    return false;
  }
  inbox->addOutcome(MessageRef(new VSMessage(reply)), *callback);
  return true;
}

void Receiver::refuse(BusLink& link, GDBusMessage* request, const char* reason) {
  if ((g_dbus_message_get_flags(request) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) != 0) {
    return;
  }
  g_autoptr(GDBusMessage) reply =
      g_dbus_message_new_method_error_literal(request, kLimitsExceeded, reason);
  link.send(reply, nullptr, nullptr);
}

}  // namespace vela
