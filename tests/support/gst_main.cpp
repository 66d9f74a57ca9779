// The main program of tests that use GStreamer: the plug-in under test and those it is tested with,
// and no others, in a registry of their own.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <string>

// Scanning a machine's whole set of plug-ins takes half a second. The scanner is a program of its
// own, which could not load a sanitized plug-in: no fork.
static void choosePlugins(const std::string& program) {
  g_setenv("GST_PLUGIN_PATH_1_0", TESTED_PLUGINS, TRUE);
  g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", SYSTEM_PLUGINS, TRUE);
  g_setenv("GST_REGISTRY_1_0", (program + "-registry.bin").c_str(), TRUE);
  g_setenv("GST_REGISTRY_FORK", "no", TRUE);
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  choosePlugins(argv[0]);
  gst_init(&argc, &argv);
  const int result = RUN_ALL_TESTS();
  gst_deinit();
  return result;
}
