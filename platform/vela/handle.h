// A registered service or a client: the connection, its method table, and its place in the loop.
//
// Thread: the loop's, but for finishAtExit(). Everything other threads touch is in the parts, which
// lock for themselves.
// Owns itself from open() to unregister(); a dispatch below unregister() on the stack keeps the
// object (closed by then) until it returns.
#ifndef PLATFORM_VELA_HANDLE_H
#define PLATFORM_VELA_HANDLE_H

#include <gio/gio.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/vela/bus_link.h"
#include "platform/vela/glib_ref.h"
#include "platform/vela/handler_stack.h"
#include "platform/vela/handover.h"
#include "platform/vela/inbox.h"
#include "platform/vela/method_table.h"
#include "platform/vela/open_requests.h"
#include "platform/vela/pending_replies.h"
#include "platform/vela/uri.h"
#include "vela/vela.h"

struct VSHandle : std::enable_shared_from_this<VSHandle> {
 public:
  // An empty name makes a client. Null on failure.
  static VSHandle* open(const std::string& name, bool publicBus, VSError* error);
  ~VSHandle() = default;  // disconnected by then
  VSHandle(const VSHandle&) = delete;
  VSHandle& operator=(const VSHandle&) = delete;

  bool attach(GMainLoop* loop, VSError* error);
  bool call(const vela::Uri& uri, const char* payload, const vela::Callback& callback,
            VSMessageToken* token, VSError* error);
  bool unregister(VSError* error);

  // exit() was called, on any thread. A service ends as unregister() has it. The request whose
  // handler called exit() gets NoReply; those that it interrupted are handed over last, when the
  // threads that worked for them have had the most time to end. When another thread than the loop's
  // called exit(), nobody knows for which request: those with a handler on the stack, which may
  // never return, get Disconnected, so that their callers know they may ask again.
  void finishAtExit();

  vela::MethodTable& methods() { return table; }

 private:
  VSHandle(const std::string& name, std::shared_ptr<vela::BusLink> link);

  void startDispatch();
  void stopDispatch();
  bool dispatchOne();
  void runRequest(VSMessage* request);
  void serve(VSMessage& request);
  void holdAtDepth();
  void failPendingCalls();
  void onConnectionClosed();

  bool end(std::vector<vela::MessageRef> interrupted, VSError* error);
  void finishOnLoop();
  void finishElsewhere();
  bool handOver(VSError* error);
  bool isFinished();
  void finishReceived();
  void awaitSilence();
  void disconnect();

  const std::string name;
  const std::shared_ptr<vela::BusLink> link;
  const vela::GlibRef<GMainContext> context;  // the thread's default when the handle was made
  const std::shared_ptr<vela::OpenRequests> openRequests;
  const std::shared_ptr<vela::Inbox> inbox;
  const std::shared_ptr<vela::Handover> handover;
  const std::shared_ptr<vela::PendingCalls> calls;
  vela::MethodTable table;
  guint receiverId = 0;
  gulong closedSignalId = 0;
  vela::GlibRef<GSource> source;  // null while not dispatching
  vela::HandlerStack running;
  std::atomic<bool> unregistering{false};
  VSMessageToken lastToken = 0;
  std::shared_ptr<VSHandle> self;  // until unregister()
};

#endif
