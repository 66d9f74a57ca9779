// What has arrived and waits for the loop: requests within bounds, and the outcomes of calls.
//
// Outcomes come first and are never held back: a handler at the depth limit may be waiting for one
// in its nested loop.
// Thread: any, but requests are added by one thread only.
#ifndef PLATFORM_VELA_INBOX_H
#define PLATFORM_VELA_INBOX_H

#include <glib.h>

#include <deque>
#include <memory>
#include <optional>

#include "platform/vela/glib_ref.h"
#include "platform/vela/message.h"
#include "platform/vela/mutex.h"
#include "platform/vela/pending_replies.h"

namespace vela {

class Inbox {
 public:
  struct Item {
    enum class Kind { Nothing, Request, Outcome, Loss };
    Kind kind = Kind::Nothing;
    MessageRef message;
    Callback callback{};  // of an outcome
  };

  struct Request {
    MessageRef message;
    size_t sizeBytes;
  };

  // Whether one more request of this size may wait.
  bool hasRoomFor(size_t sizeBytes);
  // False, with the request left to the caller, once the inbox is closed.
  bool addRequest(MessageRef& request, size_t sizeBytes);
  // Takes no new requests from now on, and gives those that wait.
  std::deque<Request> close();
  // Adds a request to a closed inbox.
  void putBack(MessageRef request, size_t sizeBytes);
  void addOutcome(MessageRef outcome, const Callback& callback);
  // The connection is lost: no request waits any more, and when the outcomes are through take()
  // gives Loss, once.
  void setLost();

  // The next item, or Nothing.
  Item take();
  bool hasOutcome();
  // While held, requests stay where they are.
  void hold(bool on);

  // The source (a reference is taken) is ready whenever take() has something to give. Null: none.
  void setSource(GSource* source);

 private:
  void add(MessageRef request, size_t sizeBytes) VELA_REQUIRES(mutex);
  bool requestReady() const VELA_REQUIRES(mutex) { return !held && !requests.empty(); }
  Item takeRequest() VELA_REQUIRES(mutex);
  void updateSource() VELA_REQUIRES(mutex);

  Mutex mutex;
  std::deque<Request> requests VELA_GUARDED_BY(mutex);
  std::deque<Item> outcomes VELA_GUARDED_BY(mutex);
  size_t waitingBytes VELA_GUARDED_BY(mutex) = 0;
  bool held VELA_GUARDED_BY(mutex) = false;
  bool closed VELA_GUARDED_BY(mutex) = false;
  bool lost VELA_GUARDED_BY(mutex) = false;
  GlibRef<GSource> source VELA_GUARDED_BY(mutex);
};

}  // namespace vela

#endif
