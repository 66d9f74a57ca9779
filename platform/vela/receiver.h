// Takes what the bus delivers, on GDBus's worker thread, before GDBus looks at it.
//
// Every method call goes into the inbox, or on to the next process once the inbox is closed (or is
// refused at once when it is beyond the bounds); so do the replies to our outgoing calls; all else
// is left to GDBus. Nothing is decided here about paths and methods: the method table may not be
// known yet. Thread: the worker thread; it never waits.
#ifndef PLATFORM_VELA_RECEIVER_H
#define PLATFORM_VELA_RECEIVER_H

#include <gio/gio.h>

#include <memory>

#include "platform/vela/bus_link.h"
#include "platform/vela/handover.h"
#include "platform/vela/inbox.h"
#include "platform/vela/open_requests.h"
#include "platform/vela/pending_replies.h"

namespace vela {

class Receiver {
 public:
  // Installs a receiver on the connection; uninstall() with the result.
  static guint install(const std::shared_ptr<BusLink>& link, std::shared_ptr<Inbox> inbox,
                       std::shared_ptr<Handover> handover, std::shared_ptr<PendingCalls> calls,
                       std::shared_ptr<OpenRequests> open);
  static void uninstall(BusLink& link, guint id);

 private:
  static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                 gboolean incoming, gpointer data) noexcept;

  // Whether the message was taken.
  bool receive(GDBusMessage* message);
  bool receiveRequest(GDBusMessage* request);
  bool receiveOutcome(GDBusMessage* reply);
  static void refuse(BusLink& link, GDBusMessage* request, const char* reason);

  // The connection owns this object, so only a weak reference back.
  std::weak_ptr<BusLink> weakLink;
  std::shared_ptr<Inbox> inbox;
  std::shared_ptr<Handover> handover;
  std::shared_ptr<PendingCalls> calls;
  std::shared_ptr<OpenRequests> open;
};

}  // namespace vela

#endif
