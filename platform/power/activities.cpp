#include "platform/power/activities.h"

#include <algorithm>
#include <utility>

constexpr char kWho[] = "tarn-transcode";

Activities::Activities(std::function<void()> callback) : whenNone(std::move(callback)) {}

Activities::~Activities() {
  if (timer != 0) g_source_remove(timer);
}

bool Activities::start(const std::string& id, int durationMs) {
  const gint64 endUs = g_get_monotonic_time() + G_TIME_SPAN_MILLISECOND * durationMs;
  const auto found = byId.find(id);
  if (found != byId.end()) {
    found->second->endUs = std::max(found->second->endUs, endUs);
  } else if (byId.size() == kMost) {
    return false;
  } else {
    byId[id].reset(new Activity{SleepLock(kWho, id + " is at work"), endUs});
  }
  awaitNextEnd();
  return true;
}

gboolean Activities::onTime(gpointer self) {
  static_cast<Activities*>(self)->endThoseOver();
  return G_SOURCE_REMOVE;
}

void Activities::endThoseOver() {
  timer = 0;
  const gint64 now = g_get_monotonic_time();
  std::erase_if(byId, [now](const auto& entry) { return entry.second->endUs <= now; });
  if (none()) {
    whenNone();
  } else {
    awaitNextEnd();
  }
}

void Activities::awaitNextEnd() {
  if (timer != 0) g_source_remove(timer);
  const auto first = std::min_element(byId.begin(), byId.end(), [](const auto& a, const auto& b) {
    return a.second->endUs < b.second->endUs;
  });
  const gint64 leftUs = std::max<gint64>(first->second->endUs - g_get_monotonic_time(), 0);
  timer = g_timeout_add(static_cast<guint>(leftUs / G_TIME_SPAN_MILLISECOND + 1), onTime, this);
}
