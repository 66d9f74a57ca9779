// One request, or the outcome of one outgoing call.
//
// Thread: any; everything but the reference count and the answered flag is constant.
// Owns the D-Bus message, and with it the payload. It keeps the connection object alive, so a reply
// that comes after VSUnregister fails instead of reading freed memory.
#ifndef PLATFORM_VELA_MESSAGE_H
#define PLATFORM_VELA_MESSAGE_H

#include <gio/gio.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/vela/bus_link.h"
#include "platform/vela/glib_ref.h"
#include "platform/vela/open_requests.h"
#include "vela/vela.h"

struct VSMessage {
 public:
  // A request, counted as open until it goes or stopCounting().
  VSMessage(GDBusMessage* request, std::shared_ptr<vela::BusLink> link,
            std::shared_ptr<vela::OpenRequests> open);
  // The reply, or the error reply, to an outgoing call.
  explicit VSMessage(GDBusMessage* reply);
  // An outgoing call that failed on this side of the bus.
  VSMessage(const char* name, const char* description) : errorName(name), errorText(description) {}
  VSMessage(const VSMessage&) = delete;
  VSMessage& operator=(const VSMessage&) = delete;

  void ref() { references.fetch_add(1, std::memory_order_relaxed); }
  // The last one answers a request that nobody answered, and deletes.
  void unref();

  const char* payload() const { return text != nullptr ? text : ""; }
  // Whether the arguments are exactly one string.
  bool hasOneText() const { return text != nullptr; }
  // Both null unless this is a failed call.
  const char* error() const { return errorName.empty() ? nullptr : errorName.c_str(); }
  const char* errorMessage() const { return error() != nullptr ? errorText.c_str() : nullptr; }

  // "" when no other process sent it.
  const char* sender() const;
  const char* path() const { return g_dbus_message_get_path(bus.get()); }
  const char* interface() const { return g_dbus_message_get_interface(bus.get()); }  // may be null
  const char* member() const { return g_dbus_message_get_member(bus.get()); }
  bool hasArguments() const { return g_dbus_message_get_body(bus.get()) != nullptr; }

  // Answer the request; only the first answer goes out. Returns when it has left the process.
  bool answer(const char* replyText, VSError* error);
  bool answerEmpty(VSError* error);
  bool answerError(const char* name, const std::string& description, VSError* error = nullptr);

  bool isAnswered() const { return answered; }

  // The following answer without waiting until the answer has left the process, and the request is
  // no longer waited for. For GDBus's worker thread.
  //
  // Answers with what another process answered.
  void relay(GDBusMessage* reply);
  void refuse(const char* name, const std::string& description);

  // The same call, of that service and with a reply wanted.
  vela::GlibRef<GDBusMessage> callOf(const std::string& service) const;
  vela::BusLink& busLink() const { return *link; }  // of a request

  // The request is no longer waited for.
  void stopCounting();

 private:
  ~VSMessage();
  bool claim(VSError* error);
  bool sendReply(GVariant* body, VSError* error);
  bool refuseOversized(VSError* error);
  bool sendErrorReply(const char* name, const std::string& description, VSError* error);

  const vela::GlibRef<GDBusMessage> bus;
  const char* text = nullptr;  // inside bus
  std::string errorName;
  std::string errorText;
  std::shared_ptr<vela::BusLink> link;       // requests only
  std::shared_ptr<vela::OpenRequests> open;  // requests only
  std::atomic<int> references{1};
  std::atomic<bool> answered{false};
  std::atomic<bool> counted{false};
};

namespace vela {

struct MessageUnref {
  void operator()(VSMessage* message) const { message->unref(); }
};
// One reference.
using MessageRef = std::unique_ptr<VSMessage, MessageUnref>;

// The string of a body that is exactly one string, else null. Valid as long as the message.
const char* onlyText(GDBusMessage* message);

}  // namespace vela

#endif
