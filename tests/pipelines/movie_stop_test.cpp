// Runs that are stopped at any moment: no dead-lock, nothing left, no growth.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <random>

#include "tests/pipelines/file_transcode.h"
#include "tests/pipelines/live_objects.h"
#include "tests/support/log_capture.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

namespace {

void postError(GstElement* pipeline) {
  GError* error = g_error_new_literal(GST_CORE_ERROR, GST_CORE_ERROR_FAILED, "stop");
  gst_element_post_message(pipeline, gst_message_new_error(nullptr, error, nullptr));
  g_error_free(error);
}

size_t allocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// What is alive between two runs.
struct Footprint {
  Footprint() { EXPECT_TRUE(waitForObjects({})); }
  int descriptors = descriptorCount();
  int threads = threadCount();
  size_t bytes = allocatedBytes();
};

class MovieStop : public testing::Test {
 protected:
  MovieStop() {
    ClipRecipe recipe;
    recipe.name = "clip.mp4";
    clip = movieClip(recipe);
  }

  void runOnce(const std::function<void(FileTranscode&)>& whenBuilt) {
    LogCapture log;
    FileTranscode task(clip, folder / "out.mp4");
    task.whenBuilt = whenBuilt;
    EXPECT_EQ(task.run(), LaunchDone);
    EXPECT_EQ(task.pipeline, nullptr);
  }

  void expectNoGrowth(const Footprint& before) {
    EXPECT_TRUE(waitForObjects({})) << testing::PrintToString(liveObjects());
    EXPECT_TRUE(waitForDescriptors(before.descriptors)) << descriptorCount();
    EXPECT_TRUE(waitForThreads(before.threads));
    EXPECT_LT(allocatedBytes(), before.bytes + (size_t{2} << 20));
  }

  TempDir folder;
  std::string clip;
};

TEST_F(MovieStop, AtRandomMoments) {
  std::mt19937 random(20);
  std::uniform_int_distribution<guint> delayMs(0, 120);
  const auto stopLater = [&](FileTranscode& task) {
    g_timeout_add_full(
        G_PRIORITY_HIGH, delayMs(random),
        [](gpointer pipeline) -> gboolean {
          postError(GST_ELEMENT(pipeline));
          return G_SOURCE_REMOVE;
        },
        gst_object_ref(task.pipeline), gst_object_unref);
  };
  // A run that ends before its timer leaves the timer, with a pipeline, to the next one.
  const auto finishTimers = [] {
    EXPECT_TRUE(waitUntil([] { return liveObjects().count("GstPipeline") == 0; }));
  };
  for (int i = 0; i < 10; ++i) {
    runOnce(stopLater);
  }
  finishTimers();
  const Footprint before;
  for (int i = 0; i < 60; ++i) {
    runOnce(stopLater);
  }
  finishTimers();
  expectNoGrowth(before);
}

// The worst moment: the handlers link and start elements while the pipeline is brought down.
TEST_F(MovieStop, WhileThePadsAreAnnounced) {
  const auto stopAtFirstPad = [](FileTranscode& task) {
    g_signal_connect(
        task.decodeBin, "pad-added",
        G_CALLBACK(+[](GstElement*, GstPad*, GstElement* pipeline) { postError(pipeline); }),
        task.pipeline);
  };
  for (int i = 0; i < 10; ++i) {
    runOnce(stopAtFirstPad);
  }
  const Footprint before;
  for (int i = 0; i < 60; ++i) {
    runOnce(stopAtFirstPad);
  }
  expectNoGrowth(before);
}

TEST_F(MovieStop, WholeRunsDoNotGrow) {
  for (int i = 0; i < 3; ++i) {
    runOnce(nullptr);
  }
  const Footprint before;
  for (int i = 0; i < 10; ++i) {
    runOnce(nullptr);
  }
  expectNoGrowth(before);
}

}  // namespace
