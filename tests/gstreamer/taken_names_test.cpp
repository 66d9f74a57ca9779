// Elements of ours that go by names which GStreamer's own plug-ins beside them have too.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

struct Name {
  const char* element;
  const char* file;     // of the plug-in that has it too
  const char* another;  // element of that plug-in
};

class TakenNameTest : public testing::TestWithParam<Name> {};

void load(const char* element) {
  gst_object_unref(gst_object_ref_sink(gst_element_factory_make(element, nullptr)));
}

bool isOurs(const char* element) {
  g_autoptr(GstElementFactory) factory = gst_element_factory_find(element);
  return factory != nullptr &&
         g_strcmp0(gst_plugin_feature_get_plugin_name(GST_PLUGIN_FEATURE(factory)), "tarnphoto") ==
             0;
}

// The other plug-in registers its own again when one of its elements is made.
TEST_P(TakenNameTest, StaysOursWhenTheOtherPluginIsLoaded) {
  load(GetParam().element);
  EXPECT_TRUE(isOurs(GetParam().element));
  load(GetParam().another);
  EXPECT_TRUE(isOurs(GetParam().element));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // gst-inspect is not sanitized

// In whatever order the two files are found, in a new registry, in one that is read again, and when
// ours has changed.
TEST_P(TakenNameTest, IsOursHoweverTheRegistryCameAbout) {
  const auto shell = [](const std::string& command) { return system(command.c_str()); };
  for (const char* paths : {"$F:$F/ours", "$F/ours:$F"}) {
    const TempDir dir;
    const std::string& folder = dir.path();
    const std::string isOurs = "F=" + folder +
                               "; export GST_PLUGIN_SYSTEM_PATH_1_0= GST_REGISTRY_FORK=no "
                               "GST_REGISTRY_1_0=$F/registry; gst-inspect-1.0 --gst-plugin-path=" +
                               paths + " " + GetParam().element + " | grep -q 'Name *tarnphoto'";
    ASSERT_EQ(
        shell("mkdir -p " + folder + "/ours && cd " + folder + " && ln -s " SYSTEM_PLUGINS "/" +
              GetParam().file + " . && cp -L " TESTED_PLUGINS "/libgsttarnphoto.so ours"),
        0);
    EXPECT_EQ(shell(isOurs), 0) << paths;
    EXPECT_EQ(shell(isOurs), 0) << paths;
    ASSERT_EQ(shell("touch -d 2001-02-03 " + folder + "/ours/libgsttarnphoto.so"), 0);
    EXPECT_EQ(shell(isOurs), 0) << paths;
    EXPECT_EQ(shell(isOurs), 0) << paths;
  }
}

#endif

INSTANTIATE_TEST_SUITE_P(Names, TakenNameTest,
                         testing::Values(Name{"jpegdec", "libgstjpeg.so", "jpegenc"},
                                         Name{"filesink", "libgstcoreelements.so", "filesrc"}),
                         [](const auto& instance) { return std::string(instance.param.element); });

}  // namespace
