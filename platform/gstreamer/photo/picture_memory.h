// The memory that all pictures being decoded may take together.
//
// One that asks for more than is left waits for the others, in the order of asking; one that asks
// for more than there is at all is refused.
//
// Thread: any. A share is given back by its destructor.
#ifndef PLATFORM_GSTREAMER_PHOTO_PICTURE_MEMORY_H
#define PLATFORM_GSTREAMER_PHOTO_PICTURE_MEMORY_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

class PictureMemory {
 public:
  class Share {
   public:
    Share() = default;
    Share(Share&& other) noexcept;
    Share& operator=(Share&& other) noexcept;
    ~Share();

   private:
    friend class PictureMemory;

    PictureMemory* memory = nullptr;
    size_t bytes = 0;
  };

  // Somebody who asks, and may be told to stop waiting.
  class Waiter {
   private:
    friend class PictureMemory;

    bool cancelled = false;
  };

  enum class Answer { Given, TooMuch, Cancelled };

  explicit PictureMemory(size_t totalBytes) : total(totalBytes) {}

  // Waits on the calling thread. Given: the share holds the bytes, what it held before is given
  // back.
  Answer take(size_t bytes, Waiter* waiter, Share* share);
  // A cancelled waiter stops waiting, and waits no more until it is allowed to again.
  void cancel(Waiter* waiter);
  void allow(Waiter* waiter);

  size_t totalBytes() const { return total; }
  size_t usedBytes() const;

 private:
  void giveBack(size_t bytes);

  const size_t total;
  mutable std::mutex mutex;
  std::condition_variable changed;
  size_t used = 0;
  std::deque<const Waiter*> queue;
};

#endif
