#include "tests/pipelines/live_objects.h"

#include "platform/gstreamer/define_type.h"

#include <gst/gst.h>
// The hooks of tracers are not promised to stay as they are.
#define GST_USE_UNSTABLE_API
#include <gst/gsttracer.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>

#include "tests/support/wait_until.h"

struct LiveCounter {
  GstTracer parent;
};
struct LiveCounterClass {
  GstTracerClass parent;
};
static GType live_counter_get_type();
TARN_DEFINE_TYPE(LiveCounter, live_counter, GST_TYPE_TRACER)
static void live_counter_class_init(LiveCounterClass*) {}
static void live_counter_init(LiveCounter*) {}

namespace {

std::mutex gMutex;
std::map<gpointer, GType> gLive;

void add(gpointer object, GType type) {
  const std::lock_guard<std::mutex> guard(gMutex);
  gLive[object] = type;
}

void remove(gpointer object) {
  const std::lock_guard<std::mutex> guard(gMutex);
  gLive.erase(object);
}

void onObject(GObject*, GstClockTime, GstObject* object) {
  add(object, G_OBJECT_TYPE(object));
}
void onMiniObject(GObject*, GstClockTime, GstMiniObject* object) {
  add(object, GST_MINI_OBJECT_TYPE(object));
}
void onGone(GObject*, GstClockTime, gpointer object) {
  remove(object);
}

bool belongsToPipelines(GType type) {
  for (const GType kind : {GST_TYPE_ELEMENT, GST_TYPE_PAD, GST_TYPE_BUS, GST_TYPE_TASK,
                           GST_TYPE_MESSAGE, GST_TYPE_EVENT, GST_TYPE_BUFFER, GST_TYPE_QUERY}) {
    if (g_type_is_a(type, kind)) return true;
  }
  return false;
}

int entries(const char* folder) {
  int result = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    (void)entry;
    ++result;
  }
  return result;
}

// Counts from before the first test on.
class Counting : public testing::Environment {
 public:
  void SetUp() override {
    auto* tracer = static_cast<GstTracer*>(g_object_new(live_counter_get_type(), nullptr));
    gst_tracing_register_hook(tracer, "object-created", G_CALLBACK(onObject));
    gst_tracing_register_hook(tracer, "object-destroyed", G_CALLBACK(onGone));
    gst_tracing_register_hook(tracer, "mini-object-created", G_CALLBACK(onMiniObject));
    gst_tracing_register_hook(tracer, "mini-object-destroyed", G_CALLBACK(onGone));
    gst_object_unref(tracer);
  }
};

const testing::Environment* const kCounting = testing::AddGlobalTestEnvironment(new Counting);

}  // namespace

std::map<std::string, int> liveObjects() {
  const std::lock_guard<std::mutex> guard(gMutex);
  std::map<std::string, int> counts;
  for (const auto& [object, type] : gLive) {
    if (belongsToPipelines(type)) ++counts[g_type_name(type)];
  }
  return counts;
}

int threadCount() {
  g_thread_pool_stop_unused_threads();
  return entries("/proc/self/task");
}

bool waitForObjects(const std::map<std::string, int>& expected) {
  return waitUntil([&] { return liveObjects() == expected; });
}

bool waitForThreads(int count) {
  return waitUntil([&] { return threadCount() <= count; });
}

int descriptorCount() {
  return entries("/proc/self/fd");
}

bool waitForDescriptors(int count) {
  return waitUntil([&] { return descriptorCount() <= count; });
}
