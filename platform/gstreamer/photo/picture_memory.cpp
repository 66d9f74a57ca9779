#include "platform/gstreamer/photo/picture_memory.h"

#include <algorithm>
#include <utility>

PictureMemory::Share::Share(Share&& other) noexcept
    : memory(std::exchange(other.memory, nullptr)), bytes(std::exchange(other.bytes, 0)) {}

PictureMemory::Share& PictureMemory::Share::operator=(Share&& other) noexcept {
  std::swap(memory, other.memory);
  std::swap(bytes, other.bytes);
  return *this;
}

PictureMemory::Share::~Share() {
  if (memory != nullptr) memory->giveBack(bytes);
}

PictureMemory::Answer PictureMemory::take(size_t bytes, Waiter* waiter, Share* share) {
  if (bytes > total) return Answer::TooMuch;
  *share = Share();
  std::unique_lock<std::mutex> lock(mutex);
  queue.push_back(waiter);
  changed.wait(lock, [&] {
    return waiter->cancelled || (queue.front() == waiter && bytes <= total - used);
  });
  queue.erase(std::find(queue.begin(), queue.end(), waiter));
  changed.notify_all();  // another is in front now
  if (waiter->cancelled) return Answer::Cancelled;
  used += bytes;
  share->memory = this;
  share->bytes = bytes;
  return Answer::Given;
}

void PictureMemory::cancel(Waiter* waiter) {
  const std::lock_guard<std::mutex> lock(mutex);
  waiter->cancelled = true;
  changed.notify_all();
}

void PictureMemory::allow(Waiter* waiter) {
  const std::lock_guard<std::mutex> lock(mutex);
  waiter->cancelled = false;
}

size_t PictureMemory::usedBytes() const {
  const std::lock_guard<std::mutex> lock(mutex);
  return used;
}

void PictureMemory::giveBack(size_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex);
  used -= bytes;
  changed.notify_all();
}
