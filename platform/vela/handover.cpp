#include "platform/vela/handover.h"

#include <optional>
#include <string_view>
#include <utility>

#include "platform/vela/error_record.h"
#include "platform/vela/limits.h"

namespace vela {

namespace {

// Whether the bus itself answered because the call reached nobody. NoReply comes from the bus too,
// when the process that had the call has ended.
bool reachedNobody(GDBusMessage* reply) {
  const char* sender = g_dbus_message_get_sender(reply);
  return g_dbus_message_get_message_type(reply) == G_DBUS_MESSAGE_TYPE_ERROR && sender != nullptr &&
         std::string_view(sender) == "org.freedesktop.DBus" &&
         std::string_view(g_dbus_message_get_error_name(reply)) != kNoReply;
}

}  // namespace

bool Handover::hasRoomFor(size_t sizeBytes) const {
  return requests < kMaxWaitingRequests && bytes + sizeBytes <= kMaxWaitingBytes;
}

void Handover::add(MessageRef request, size_t sizeBytes) {
  send({std::move(request), sizeBytes, false});
}

void Handover::addInterrupted(MessageRef request) {
  if (request->isAnswered()) {
    request->stopCounting();
  } else {
    send({std::move(request), 0, true});
  }
}

void Handover::send(Entry entry) {
  ++requests;
  bytes += entry.sizeBytes;
  VSMessage& request = *entry.request;
  const GlibRef<GDBusMessage> call = request.callOf(service);
  if (!underWay.send(request.busLink(), call.get(), entry, nullptr)) {
    undelivered(std::move(entry));
  }
}

bool Handover::relay(GDBusMessage* reply) {
  std::optional<Entry> entry = underWay.take(g_dbus_message_get_reply_serial(reply));
  if (!entry) return false;
  if (reachedNobody(reply)) {
    undelivered(std::move(*entry));
  } else {
    --requests;
    bytes -= entry->sizeBytes;
    entry->request->relay(reply);
  }
  return true;
}

void Handover::undelivered(Entry entry) {
  --requests;
  bytes -= entry.sizeBytes;
  if (entry.interrupted || refuses) {
    entry.request->refuse(kDisconnected, "The service ended before it had handled the request");
  } else {
    inbox->putBack(std::move(entry.request), entry.sizeBytes);
  }
}

}  // namespace vela
