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
#include <mutex>
#include <optional>

#include "platform/vela/message.h"
#include "platform/vela/pending_calls.h"

namespace vela {

class Inbox {
 public:
  struct Item {
    enum class Kind { Nothing, Request, Outcome, Loss };
    Kind kind = Kind::Nothing;
    MessageRef message;
    Callback callback{};  // of an outcome
  };

  ~Inbox();

  // Whether one more request of this size may wait.
  bool hasRoomFor(size_t sizeBytes);
  void addRequest(MessageRef request, size_t sizeBytes);
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
  struct Request {
    MessageRef message;
    size_t sizeBytes;
  };

  bool requestReady() const { return !held && !requests.empty(); }
  Item takeRequest();
  void updateSource();

  std::mutex mutex;
  std::deque<Request> requests;
  std::deque<Item> outcomes;
  size_t waitingBytes = 0;
  bool held = false;
  bool lost = false;
  GSource* source = nullptr;
};

}  // namespace vela

#endif
