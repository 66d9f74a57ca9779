// Hands requests over to the next process of the service and relays its replies.
//
// A process that is about to end neither runs what it has not begun nor refuses it. It has given
// its well-known name back by then and calls that name: where the service can be activated, the bus
// starts the next process. The next process sees this one as the sender.
// Thread: any, GDBus's worker thread included; nothing here waits.
#ifndef PLATFORM_VELA_HANDOVER_H
#define PLATFORM_VELA_HANDOVER_H

#include <gio/gio.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/vela/inbox.h"
#include "platform/vela/message.h"
#include "platform/vela/pending_replies.h"

namespace vela {

class Handover {
 public:
  // Requests that the bus cannot deliver go back into the inbox, to be handled here after all.
  Handover(std::string serviceName, std::shared_ptr<Inbox> undelivered)
      : service(std::move(serviceName)), inbox(std::move(undelivered)) {}

  // From now on they are refused instead: nobody is left to handle them.
  void refuseUndelivered() { refuses = true; }

  // Whether one more request of this size may be under way.
  bool hasRoomFor(size_t sizeBytes) const;
  void add(MessageRef request, size_t sizeBytes);
  // One whose handler had begun: it is not handled here a second time. Nothing happens when it is
  // answered already.
  void addInterrupted(MessageRef request);

  // Whether the reply is to a request that was handed over; then it has been relayed.
  bool relay(GDBusMessage* reply);
  // The connection is lost.
  void drop() { underWay.takeAll(); }

 private:
  struct Entry {
    MessageRef request;
    size_t sizeBytes;
    bool interrupted;
  };

  void send(Entry entry);
  void undelivered(Entry entry);

  const std::string service;
  const std::shared_ptr<Inbox> inbox;
  PendingReplies<Entry> underWay;
  std::atomic<size_t> requests{0};
  std::atomic<size_t> bytes{0};
  std::atomic<bool> refuses{false};
};

}  // namespace vela

#endif
