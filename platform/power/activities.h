// The activities that keep the device awake, each until its time is over.
#ifndef PLATFORM_POWER_ACTIVITIES_H
#define PLATFORM_POWER_ACTIVITIES_H

#include <glib.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/power/sleep_lock.h"

// Thread: the one that runs the default context's loop.
class Activities {
 public:
  static constexpr size_t kMost = 256;

  // `whenNone` is called each time that the last activity has ended.
  explicit Activities(std::function<void()> whenNone);
  ~Activities();
  Activities(const Activities&) = delete;
  Activities& operator=(const Activities&) = delete;

  // Keeps the device awake for that long from now, in ms, under the id. An activity that goes on
  // longer already is left as it is. Returns false when there are kMost others.
  bool start(const std::string& id, int durationMs);

  bool none() const { return byId.empty(); }

 private:
  struct Activity {
    SleepLock lock;
    gint64 endUs;  // on g_get_monotonic_time()
  };

  static gboolean onTime(gpointer self);
  void endThoseOver();
  void awaitNextEnd();

  const std::function<void()> whenNone;
  std::map<std::string, std::unique_ptr<Activity>> byId;
  guint timer = 0;
};

#endif
