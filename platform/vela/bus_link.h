// One private connection to the bus: opening, names, sending, closing.
//
// Thread: any, after open(). The callbacks that run on GDBus's worker thread must not flush.
// Owns the GDBusConnection. A forked child inherits the object but not the thread that does the
// work: there every operation fails with Disconnected instead of waiting for ever.
#ifndef PLATFORM_VELA_BUS_LINK_H
#define PLATFORM_VELA_BUS_LINK_H

#include <gio/gio.h>
#include <sys/types.h>

#include <memory>
#include <string>

#include "platform/vela/glib_ref.h"
#include "vela/vela.h"

namespace vela {

class BusLink {
 public:
  // Connects to the user's bus, or to the system bus. Null on failure.
  static std::shared_ptr<BusLink> open(bool publicBus, VSError* error);
  ~BusLink();
  BusLink(const BusLink&) = delete;
  BusLink& operator=(const BusLink&) = delete;

  // Takes the well-known name, or fails at once when somebody has it.
  bool requestName(const std::string& name, VSError* error);
  // Waits until the bus has taken the name back: what it routed to us before has arrived by then.
  bool releaseName(const std::string& name, VSError* error);

  // Waits for an answer of the bus: what it routed to us before has arrived by then.
  void awaitBus();

  // Sends without waiting. On success *serial (may be null) identifies the message.
  bool send(GDBusMessage* message, guint32* serial, VSError* error);
  // Sends and returns when the message has left the process. Not on the worker thread.
  bool sendAndFlush(GDBusMessage* message, VSError* error);
  bool flush(VSError* error);

  // Flushes what is under way and disconnects. A second call does nothing.
  void close();
  // Whether the connection is gone, for whatever reason.
  bool isClosed() const;

  GDBusConnection* connection() const { return bus.get(); }

 private:
  explicit BusLink(GDBusConnection* connection);
  bool callBus(const char* method, GVariant* arguments, guint32* result, VSError* error);
  bool usable(VSError* error) const;

  const GlibRef<GDBusConnection> bus;
  const pid_t owner;
};

}  // namespace vela

#endif
