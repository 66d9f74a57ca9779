#include "platform/vela/inbox.h"

#include <utility>

#include "platform/vela/limits.h"

namespace vela {

bool Inbox::hasRoomFor(size_t sizeBytes) {
  const MutexLock lock(mutex);
  return requests.size() < kMaxWaitingRequests && waitingBytes + sizeBytes <= kMaxWaitingBytes;
}

bool Inbox::addRequest(MessageRef& request, size_t sizeBytes) {
  const MutexLock lock(mutex);
  if (closed) return false;
  add(std::move(request), sizeBytes);
  return true;
}

std::deque<Inbox::Request> Inbox::close() {
  const MutexLock lock(mutex);
  closed = true;
  waitingBytes = 0;
  std::deque<Request> waiting;
  waiting.swap(requests);
  updateSource();
  return waiting;
}

void Inbox::putBack(MessageRef request, size_t sizeBytes) {
  const MutexLock lock(mutex);
  if (!lost) add(std::move(request), sizeBytes);
}

void Inbox::add(MessageRef request, size_t sizeBytes) {
  requests.push_back({std::move(request), sizeBytes});
  waitingBytes += sizeBytes;
  updateSource();
}

void Inbox::addOutcome(MessageRef outcome, const Callback& callback) {
  const MutexLock lock(mutex);
  outcomes.push_back({Item::Kind::Outcome, std::move(outcome), callback});
  updateSource();
}

void Inbox::setLost() {
  std::deque<Request> dropped;  // let go outside the lock
  const MutexLock lock(mutex);
  dropped.swap(requests);
  waitingBytes = 0;
  lost = true;
  updateSource();
}

Inbox::Item Inbox::take() {
  const MutexLock lock(mutex);
  Item item;
  if (!outcomes.empty()) {
    item = std::move(outcomes.front());
    outcomes.pop_front();
  } else if (lost) {
    item.kind = Item::Kind::Loss;
    lost = false;
  } else if (requestReady()) {
    item = takeRequest();
  }
  updateSource();
  return item;
}

Inbox::Item Inbox::takeRequest() {
  Request request = std::move(requests.front());
  requests.pop_front();
  waitingBytes -= request.sizeBytes;
  return {Item::Kind::Request, std::move(request.message), {}};
}

bool Inbox::hasOutcome() {
  const MutexLock lock(mutex);
  return !outcomes.empty();
}

void Inbox::hold(bool on) {
  const MutexLock lock(mutex);
  held = on;
  updateSource();
}

void Inbox::setSource(GSource* newSource) {
  const MutexLock lock(mutex);
  source.reset(newSource != nullptr ? g_source_ref(newSource) : nullptr);
  updateSource();
}

// A ready time in the past instead of prepare and check functions: the loop sleeps while there is
// nothing to take, also while the depth limit holds requests back.
void Inbox::updateSource() {
  if (source != nullptr) {
    const bool ready = !outcomes.empty() || lost || requestReady();
    g_source_set_ready_time(source.get(), ready ? 0 : -1);
  }
}

}  // namespace vela
