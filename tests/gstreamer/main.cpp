#include <gst/gst.h>
#include <gtest/gtest.h>

// Only the plug-in under test and those it is tested with, in a registry of their own. The scanner
// of plug-ins is another program, which could not load a sanitized one: no fork.
static void choosePlugins() {
  g_setenv("GST_PLUGIN_PATH_1_0", TEST_PLUGIN_PATH, TRUE);
  g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", TEST_PLUGIN_SYSTEM_PATH, TRUE);
  g_setenv("GST_REGISTRY_1_0", TEST_REGISTRY, TRUE);
  g_setenv("GST_REGISTRY_FORK", "no", TRUE);
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  choosePlugins();
  gst_init(&argc, &argv);
  const int result = RUN_ALL_TESTS();
  gst_deinit();
  return result;
}
