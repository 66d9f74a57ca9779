// The runner of a movie pipeline, on pipelines that the test fills.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "src/pipelines/mpeg_transcode_native_gst.h"
#include "src/service/transcode_server.h"
#include "tests/pipelines/fake_elements.h"
#include "tests/pipelines/live_objects.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kTeardown[] = "virtual bool MpegTranscodeNativeGst::teardown(int)\n";
constexpr char kBusCallIn[] =
    "+ static gboolean MpegTranscodeNativeGst::bus_call(GstBus*, GstMessage*, void*) MESSAGE TYPE ";
constexpr char kBusCallOut[] =
    "- static gboolean MpegTranscodeNativeGst::bus_call(GstBus*, GstMessage*, void*)\n";
constexpr char kFailed[] = "MediaPipeline::teardown: failed to set the state to NULL";
constexpr guint kNoWatch = 0xffffffff;

class Task : public MpegTranscodeNativeGst {
 public:
  Task() : MpegTranscodeNativeGst(nullptr) {}

  int setupPipeline() override {
    if (make) pipeline = make();
    return pipeline != nullptr ? 0 : -1;
  }
  bool teardown(int seconds) override {
    asked.push_back(seconds);
    return MpegTranscodeNativeGst::teardown(seconds);
  }

  using MpegTranscodeNativeGst::busWatchId;
  using MpegTranscodeNativeGst::pipeline;

  std::function<GstElement*()> make;
  std::vector<int> asked;  // of the virtual teardown
};

// A pipeline with these messages on its bus already.
std::function<GstElement*()> pipelineWith(const std::vector<GstMessage*>& messages) {
  return [messages] {
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline));
    gst_bus_set_flushing(bus, FALSE);
    for (GstMessage* message : messages) {
      gst_bus_post(bus, message);
    }
    gst_object_unref(bus);
    return pipeline;
  };
}

// Not of an end, though it tells of trouble.
GstMessage* warningMessage() {
  GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "take care");
  GstMessage* message = gst_message_new_warning(nullptr, error, nullptr);
  g_error_free(error);
  return message;
}

GstMessage* errorMessage(const char* debug) {
  GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "it broke");
  GstMessage* message = gst_message_new_error(nullptr, error, debug);
  g_error_free(error);
  return message;
}

std::string busCallIn(const char* type) {
  return kBusCallIn + std::string(type) + "\n";
}

// The bus watch brings state changes of the pipeline along; they are not the point.
std::vector<std::string> withoutStateChanges(std::vector<std::string> lines) {
  std::vector<std::string> kept;
  for (size_t i = 0; i < lines.size(); ++i) {
    const bool chatter =
        lines[i] == busCallIn("state-changed") || lines[i] == busCallIn("stream-status") ||
        lines[i] == busCallIn("new-clock") || lines[i] == busCallIn("stream-start");
    if (chatter) {
      ++i;  // and the line that ends the call
    } else {
      kept.push_back(lines[i]);
    }
  }
  return kept;
}

TEST(NativeGst, StartsWithoutPipelineAndIsCounted) {
  const int before = TranscodeServer::taskCount;
  {
    Task task;
    EXPECT_EQ(task.pipeline, nullptr);
    EXPECT_EQ(task.busWatchId, kNoWatch);
    EXPECT_EQ(TranscodeServer::taskCount, before + 1);
  }
  EXPECT_EQ(TranscodeServer::taskCount, before);
}

TEST(NativeGst, RunFailsWhenThePipelineCannotBeBuilt) {
  Task task;
  LogCapture log;
  EXPECT_EQ(task.run(), LaunchFailed);
  EXPECT_THAT(task.asked, IsEmpty());
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), IsEmpty());
}

TEST(NativeGst, RunEndsWithTheStream) {
  Task task;
  task.make = pipelineWith({gst_message_new_eos(nullptr)});
  LogCapture log;
  testing::internal::CaptureStdout();
  const LaunchResult result = task.run();
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "End-of-stream\n");
  EXPECT_EQ(result, LaunchDone);
  EXPECT_THAT(task.asked, ElementsAre(5));
  EXPECT_EQ(task.pipeline, nullptr);
  EXPECT_EQ(task.busWatchId, kNoWatch);
  EXPECT_THAT(withoutStateChanges(log.at(G_LOG_LEVEL_MESSAGE)),
              ElementsAre(busCallIn("eos"), kBusCallOut, kTeardown));
  EXPECT_THAT(log.at(G_LOG_LEVEL_DEBUG),
              ElementsAre("MediaPipeline::teardown: setting the state to NULL succeeded"));
  EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), IsEmpty());
}

TEST(NativeGst, AnErrorEndsTheRunLikeTheStreamsEnd) {
  Task task;
  task.make = pipelineWith({errorMessage("file.c(12)")});
  LogCapture log;
  EXPECT_EQ(task.run(), LaunchDone);
  EXPECT_THAT(withoutStateChanges(log.at(G_LOG_LEVEL_MESSAGE)),
              ElementsAre(busCallIn("error"), "Error: it broke\n", "Debug details: file.c(12)\n",
                          kBusCallOut, kTeardown));
}

TEST(NativeGst, AnErrorWithoutDetailsLogsNone) {
  Task task;
  task.make = pipelineWith({errorMessage(nullptr)});
  LogCapture log;
  EXPECT_EQ(task.run(), LaunchDone);
  EXPECT_THAT(withoutStateChanges(log.at(G_LOG_LEVEL_MESSAGE)),
              ElementsAre(busCallIn("error"), "Error: it broke\n", kBusCallOut, kTeardown));
}

TEST(NativeGst, OtherMessagesAreOnlyLogged) {
  Task task;
  task.make = pipelineWith(
      {gst_message_new_latency(nullptr), warningMessage(), gst_message_new_eos(nullptr)});
  LogCapture log;
  EXPECT_EQ(task.run(), LaunchDone);
  EXPECT_THAT(withoutStateChanges(log.at(G_LOG_LEVEL_MESSAGE)),
              ElementsAre(busCallIn("latency"), kBusCallOut, busCallIn("warning"), kBusCallOut,
                          busCallIn("eos"), kBusCallOut, kTeardown));
}

TEST(NativeGst, TheBusIsWatchedBeforeThePipelinePlays) {
  Task task;
  task.make = [] {
    GstElement* pipeline =
        fake::newScriptedPipeline(GST_STATE_CHANGE_SUCCESS, GST_STATE_CHANGE_SUCCESS);
    GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline));
    gst_bus_set_flushing(bus, FALSE);
    gst_bus_post(bus, gst_message_new_eos(nullptr));
    gst_object_unref(bus);
    return pipeline;
  };
  std::vector<bool> watched;
  fake::whenStateSet = [&] { watched.push_back(task.busWatchId != kNoWatch); };
  EXPECT_EQ(task.run(), LaunchDone);
  fake::whenStateSet = nullptr;
  EXPECT_THAT(watched, ElementsAre(true, true));
}

TEST(NativeGst, TheResultOfPlayingIsNotLookedAt) {
  Task task;
  task.make = [] {
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstElement* source = gst_element_factory_make("filesrc", nullptr);
    g_object_set(source, "location", (TempDir() / "none").c_str(), nullptr);
    gst_bin_add(GST_BIN(pipeline), source);
    return pipeline;
  };
  EXPECT_EQ(task.run(), LaunchDone);
  EXPECT_EQ(task.pipeline, nullptr);
}

TEST(NativeGst, RunLeavesNothingBehind) {
  const auto before = liveObjects();
  {
    Task task;
    task.make = pipelineWith({gst_message_new_eos(nullptr)});
    EXPECT_EQ(task.run(), LaunchDone);
  }
  EXPECT_EQ(liveObjects(), before);
}

TEST(NativeGst, TeardownOfNothingOnlyLogsItsName) {
  Task task;
  LogCapture log;
  EXPECT_TRUE(task.teardown(5));
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), ElementsAre(kTeardown));
  EXPECT_THAT(log.at(G_LOG_LEVEL_DEBUG), IsEmpty());
  EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), IsEmpty());
}

TEST(NativeGst, ASecondTeardownHasNothingToDo) {
  Task task;
  task.pipeline = gst_pipeline_new(nullptr);
  EXPECT_TRUE(task.teardown(5));
  EXPECT_EQ(task.pipeline, nullptr);
  LogCapture log;
  EXPECT_TRUE(task.teardown(5));
  EXPECT_THAT(log.at(G_LOG_LEVEL_DEBUG), IsEmpty());
}

struct StateCase {
  const char* title;
  GstStateChangeReturn set;
  GstStateChangeReturn waited;
  bool result;
  std::vector<std::string> debug;
  std::vector<std::string> warnings;
};

class NativeGstTeardown : public testing::TestWithParam<StateCase> {};

TEST_P(NativeGstTeardown, ActsOnTheStateChange) {
  Task task;
  task.pipeline = fake::newScriptedPipeline(GetParam().set, GetParam().waited);
  GstElement* const observed = GST_ELEMENT(gst_object_ref(task.pipeline));
  fake::waitedNs = GST_CLOCK_TIME_NONE;
  {
    LogCapture log;
    EXPECT_EQ(task.teardown(7), GetParam().result);
    EXPECT_EQ(log.at(G_LOG_LEVEL_DEBUG), GetParam().debug);
    EXPECT_EQ(log.at(G_LOG_LEVEL_WARNING), GetParam().warnings);
  }
  EXPECT_EQ(fake::waitedNs,
            GetParam().set == GST_STATE_CHANGE_ASYNC ? 7 * GST_SECOND : GST_CLOCK_TIME_NONE);
  EXPECT_EQ(task.pipeline, GetParam().result ? nullptr : observed);
  EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(observed), GetParam().result ? 1 : 2);
  if (!GetParam().result) {
    gst_object_unref(task.pipeline);
    task.pipeline = nullptr;
  }
  gst_object_unref(observed);
}

constexpr char kSucceeded[] = "MediaPipeline::teardown: setting the state to NULL succeeded";
constexpr char kWaiting[] =
    "MediaPipeline::teardown: waiting for the state change to NULL to finish";
constexpr char kUnexpected[] =
    "MediaPipeline::teardown: unexpected result from gst_element_set_state";
const GstStateChangeReturn kSuccess = GST_STATE_CHANGE_SUCCESS;
const GstStateChangeReturn kAsync = GST_STATE_CHANGE_ASYNC;
const GstStateChangeReturn kFailure = GST_STATE_CHANGE_FAILURE;

INSTANTIATE_TEST_SUITE_P(
    Results, NativeGstTeardown,
    testing::Values(
        StateCase{"AtOnce", kSuccess, kSuccess, true, {kSucceeded}, {}},
        StateCase{"Later", kAsync, kSuccess, true, {kWaiting}, {}},
        StateCase{"FailsLater", kAsync, kFailure, true, {kWaiting}, {kFailed}},
        StateCase{"OutOfTime", kAsync, kAsync, true, {kWaiting}, {kFailed}},
        StateCase{"Fails", kFailure, kSuccess, false, {}, {kFailed}},
        StateCase{"Unexpected", GST_STATE_CHANGE_NO_PREROLL, kSuccess, true, {}, {kUnexpected}}),
    [](const auto& test) { return std::string(test.param.title); });

TEST(NativeGst, TheDestructorWaitsForFiveSeconds) {
  fake::waitedNs = GST_CLOCK_TIME_NONE;
  {
    Task task;
    task.pipeline = fake::newScriptedPipeline(kAsync, kSuccess);
  }
  EXPECT_EQ(fake::waitedNs, 5 * GST_SECOND);
}

TEST(NativeGst, ARefusedStateChangeKeepsPipelineAndWatch) {
  GstElement* pipeline = fake::newScriptedPipeline(GST_STATE_CHANGE_FAILURE, kSuccess);
  GstElement* const observed = GST_ELEMENT(gst_object_ref(pipeline));
  {
    Task task;
    task.pipeline = pipeline;
    GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline));
    const guint watch = gst_bus_add_watch(
        bus, [](GstBus*, GstMessage*, gpointer) -> gboolean { return TRUE; }, nullptr);
    gst_object_unref(bus);
    task.busWatchId = watch;
    EXPECT_FALSE(task.teardown(5));
    EXPECT_EQ(task.busWatchId, watch);
    EXPECT_NE(g_main_context_find_source_by_id(nullptr, watch), nullptr);
    // The destructor tries again, with its own version and not through the virtual slot.
    EXPECT_THAT(task.asked, ElementsAre(5));
    LogCapture log;
    task.~Task();
    EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), ElementsAre(kTeardown));
    EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), ElementsAre(kFailed));
    g_source_remove(watch);
    new (&task) Task;
  }
  EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(observed), 2);
  gst_object_unref(pipeline);
  gst_object_unref(observed);
}

TEST(NativeGst, AWatchThatIsGoneIsReported) {
  Task task;
  task.pipeline = gst_pipeline_new(nullptr);
  task.busWatchId = 123456;
  LogCapture log;
  EXPECT_TRUE(task.teardown(5));
  EXPECT_THAT(
      log.at(G_LOG_LEVEL_WARNING),
      ElementsAre("MediaPipeline::teardown: Unable to remove the bus watch source of id 123456"));
  EXPECT_EQ(task.busWatchId, kNoWatch);
  EXPECT_EQ(task.pipeline, nullptr);
}

TEST(NativeGst, TeardownTakesTheSynchronousHandlerAway) {
  int calls = 0;
  Task task;
  task.pipeline = gst_pipeline_new(nullptr);
  GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(task.pipeline));
  gst_bus_set_sync_handler(
      bus,
      [](GstBus*, GstMessage*, gpointer count) {
        ++*static_cast<int*>(count);
        return GST_BUS_PASS;
      },
      &calls, nullptr);
  gst_bus_set_flushing(bus, FALSE);
  gst_bus_post(bus, gst_message_new_eos(nullptr));
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(task.teardown(5));
  gst_bus_set_flushing(bus, FALSE);
  gst_bus_post(bus, gst_message_new_eos(nullptr));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(bus), 1);
  gst_bus_set_flushing(bus, TRUE);
  gst_object_unref(bus);
}

}  // namespace
