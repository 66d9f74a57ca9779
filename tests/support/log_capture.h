// Collects what goes to the GLib log without a domain while it lives.
//
// Thread: lines may come from any thread.
#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

#include <glib.h>

#include <mutex>
#include <string>
#include <vector>

class LogCapture {
 public:
  LogCapture() : earlier(g_log_set_default_handler(take, this)) {}
  ~LogCapture() { g_log_set_default_handler(earlier, nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The texts of one level, in order.
  std::vector<std::string> at(GLogLevelFlags level) const {
    const std::lock_guard<std::mutex> guard(mutex);
    std::vector<std::string> texts;
    for (const auto& line : lines) {
      if (line.level == level) texts.push_back(line.text);
    }
    return texts;
  }

 private:
  struct Line {
    GLogLevelFlags level;
    std::string text;
  };

  static void take(const gchar* domain, GLogLevelFlags level, const gchar* text, gpointer self) {
    auto* capture = static_cast<LogCapture*>(self);
    if (domain != nullptr) return capture->earlier(domain, level, text, nullptr);
    const std::lock_guard<std::mutex> guard(capture->mutex);
    capture->lines.push_back({static_cast<GLogLevelFlags>(level & G_LOG_LEVEL_MASK), text});
  }

  GLogFunc earlier;
  mutable std::mutex mutex;
  std::vector<Line> lines;
};

#endif
