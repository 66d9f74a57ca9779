// EnableGate holds a streaming thread back until the element's owner enables the element.
//
// Thread: enable(), stop() and restart() from any thread; pass() from the streaming thread.
#ifndef PLATFORM_GSTREAMER_MOVIE_ENABLE_GATE_H
#define PLATFORM_GSTREAMER_MOVIE_ENABLE_GATE_H

#include <chrono>
#include <condition_variable>
#include <mutex>

class EnableGate {
 public:
  enum class Passage { Open, Stopped, NotEnabled };

  // Whoever links the streams enables the elements before data flows. This only bridges a thread
  // that comes a little late; when it is over nobody is coming, because a stream is missing.
  static constexpr std::chrono::milliseconds patience{1000};

  void enable(bool value) {
    change([&] { enabled = value; });
  }

  bool isEnabled() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return enabled;
  }

  // Sends every thread on, and lets none wait until restart(): the element's state is going down,
  // or it is being flushed.
  void stop() {
    change([&] { stopped = true; });
  }
  void restart() {
    change([&] { stopped = false; });
  }

  // Returns Open once the element is enabled, waiting for it no longer than `patience`.
  Passage pass() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait_for(lock, patience, [this] { return enabled || stopped; });
    if (stopped) return Passage::Stopped;
    return enabled ? Passage::Open : Passage::NotEnabled;
  }

 private:
  template <typename Change>
  void change(Change apply) {
    const std::lock_guard<std::mutex> guard(mutex);
    apply();
    changed.notify_all();
  }

  mutable std::mutex mutex;
  std::condition_variable changed;
  bool enabled = true;
  bool stopped = false;
};

#endif
