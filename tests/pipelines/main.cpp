#include <gst/gst.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/pipelines/live_objects.h"

// What the daemon leaves to the process on purpose: the loop of a run, and the text of the caps in
// the handler of "autoplug-select"; and a table of GLib. Only asked for in leak checker builds.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
  return "leak:g_main_loop_new\nleak:autoplugSelectBindingCallback\nleak:call_init\n";
}

// GLib has no frame pointers: without this the leak checker does not see past g_malloc.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // The plug-ins that the tests need and no others: scanning a machine's whole set takes half a
  // second. The scanner is a program of its own, which could not load a sanitized one: no fork.
  g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", SYSTEM_PLUGINS, TRUE);
  g_setenv("GST_PLUGIN_PATH_1_0", TESTED_PLUGINS, TRUE);
  g_setenv("GST_REGISTRY_1_0", (std::string(argv[0]) + "-registry.bin").c_str(), TRUE);
  g_setenv("GST_REGISTRY_FORK", "no", TRUE);
  gst_init(&argc, &argv);
  countObjects();
  const int result = RUN_ALL_TESTS();
  gst_deinit();
  return result;
}
