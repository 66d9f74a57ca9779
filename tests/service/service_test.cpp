#include "src/service/service.h"

#include <gmock/gmock.h>

#include "src/service/inactivity_timer.h"
#include "src/service/transcode_server.h"
#include "tests/support/fake_vela.h"
#include "tests/support/log_capture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kKeepAlive[] = "VSCall tarn://com.tarn.power/com/tarn/power/activityStart";

gboolean quitMainLoop(gpointer) {
  g_main_loop_quit(gMainLoop);
  return G_SOURCE_REMOVE;
}

class ServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    fake_vela::reset();
    gInactivityStatus = {};
  }
  void TearDown() override { StopInactivityTimer(&gInactivityStatus); }

  // After a failed registration the process ends soon and takes these with it.
  static void releaseWhatTheProcessWould() {
    GSource* timer = gInactivityStatus.source;
    StopInactivityTimer(&gInactivityStatus);
    if (timer != nullptr) g_source_unref(timer);
    delete gTranscodeServer;
    g_main_loop_unref(gMainLoop);
  }
};

TEST_F(ServiceTest, RegistersInOrderServesAndLeaves) {
  const LogCapture log;
  g_idle_add(quitMainLoop, nullptr);
  EXPECT_EQ(registerVelaService(), 1);
  EXPECT_THAT(
      fake_vela::operations(),
      ElementsAre("VSRegisterPubPriv com.tarn.transcode private", kKeepAlive,
                  "VSRegisterCategory /", "VSCategorySetData /", "VSGmainAttach", "VSUnregister"));
  EXPECT_EQ(fake_vela::categoryData(), gTranscodeServer);
  EXPECT_EQ(fake_vela::attachedLoop(), gMainLoop);
  EXPECT_THAT(log.at(G_LOG_LEVEL_DEBUG),
              ElementsAre("+ int registerVelaService():", "----> StartInactivityTimer",
                          testing::StartsWith("Register methods gTranscodeServer 0x"),
                          "VSGmainAttach", "unregisterVelaService"));
}

TEST_F(ServiceTest, TicksEveryFiveSeconds) {
  g_idle_add(quitMainLoop, nullptr);
  registerVelaService();
  EXPECT_EQ(gInactivityStatus.intervalMs, 5000u);
  EXPECT_NE(gInactivityStatus.source, nullptr);
  EXPECT_NE(gInactivityStatus.sourceId, 0u);
}

TEST_F(ServiceTest, PublishesTheMethodTable) {
  g_idle_add(quitMainLoop, nullptr);
  registerVelaService();
  std::vector<std::string> names;
  const VSMethod* row = fake_vela::methods();
  for (; row->name != nullptr; ++row) {
    names.emplace_back(row->name);
    EXPECT_NE(row->function, nullptr);
    EXPECT_EQ(row->flags, 0);
  }
  EXPECT_EQ(row->function, nullptr);
  EXPECT_THAT(names, ElementsAre("scaleImage", "resizeImage", "resizeMovie", "getMovieInfo",
                                 "getMinimalBitrate"));
}

TEST_F(ServiceTest, RegistrationFailureIsPrintedAndEndsWithoutAHandle) {
  fake_vela::failNext("VSRegisterPubPriv");
  EXPECT_EQ(registerVelaService(), -1);
  EXPECT_EQ(fake_vela::errorsPrinted(), 1);
  EXPECT_THAT(fake_vela::operations(), ElementsAre("VSRegisterPubPriv com.tarn.transcode private"));
  releaseWhatTheProcessWould();
}

TEST_F(ServiceTest, LaterFailuresArePrintedAndUnregister) {
  for (const char* operation : {"VSRegisterCategory", "VSCategorySetData", "VSGmainAttach"}) {
    fake_vela::reset();
    fake_vela::failNext(operation);
    EXPECT_EQ(registerVelaService(), 1) << operation;
    EXPECT_EQ(fake_vela::errorsPrinted(), 1) << operation;
    EXPECT_EQ(fake_vela::operations().back(), "VSUnregister") << operation;
    EXPECT_THAT(fake_vela::operations()[fake_vela::operations().size() - 2],
                testing::StartsWith(operation));
    releaseWhatTheProcessWould();
  }
}

TEST_F(ServiceTest, FailedUnregistrationIsPrinted) {
  fake_vela::failNext("VSUnregister");
  EXPECT_EQ(unregisterVelaService(fake_vela::handle()), 0);
  EXPECT_EQ(fake_vela::errorsPrinted(), 1);
}

TEST_F(ServiceTest, UnregisteringNothingIsRefused) {
  EXPECT_EQ(unregisterVelaService(nullptr), -1);
  EXPECT_THAT(fake_vela::operations(), IsEmpty());
}

TEST_F(ServiceTest, GivesTheContextOfTheMainLoop) {
  GMainLoop* earlier = gMainLoop;
  gMainLoop = g_main_loop_new(nullptr, FALSE);
  EXPECT_EQ(GetMainLoopContext(), g_main_context_default());
  g_main_loop_unref(gMainLoop);
  gMainLoop = earlier;
}

TEST_F(ServiceTest, MinimalBitrateIsFixedWhateverIsAsked) {
  for (const char* payload : {"{}", "", "no json", "{\"inFile\":"}) {
    const fake_vela::Request request(payload);
    EXPECT_TRUE(
        TranscodeServer::getMinimalBitrate(fake_vela::handle(), request.message(), nullptr));
    EXPECT_THAT(request.replies(), ElementsAre("{\"returnValue\": 204800}"));
    EXPECT_EQ(request.referencesEverTaken(), 1);
    EXPECT_EQ(request.references(), 0);
  }
}

TEST_F(ServiceTest, ImageHandlersLeaveNoTaskBehind) {
  for (auto* handler : {TranscodeServer::scaleImage, TranscodeServer::resizeImage}) {
    const fake_vela::Request request("{}");
    EXPECT_TRUE(handler(fake_vela::handle(), request.message(), nullptr));
    EXPECT_EQ(TranscodeServer::taskCount, 0);
    EXPECT_EQ(request.references(), 0);
    EXPECT_THAT(request.replies(),
                ElementsAre(R"({"returnValue":false,"errorText":"Could not parse param inFile"})"));
  }
}

TEST_F(ServiceTest, RefusesToStartATimerOfNothing) {
  EXPECT_FALSE(StartInactivityTimer(nullptr, 5000));
  EXPECT_FALSE(StartInactivityTimer(&gInactivityStatus, 0));
  EXPECT_EQ(gInactivityStatus.source, nullptr);
  EXPECT_EQ(gInactivityStatus.sourceId, 0u);
  EXPECT_THAT(fake_vela::operations(), IsEmpty());
}

TEST_F(ServiceTest, StoppingAStoppedTimerChangesNothing) {
  EXPECT_FALSE(StopInactivityTimer(nullptr));
  gInactivityStatus.intervalMs = 7;
  EXPECT_TRUE(StopInactivityTimer(&gInactivityStatus));
  EXPECT_EQ(gInactivityStatus.intervalMs, 7u);
}

TEST_F(ServiceTest, StoppingDestroysTheTimer) {
  ASSERT_TRUE(StartInactivityTimer(&gInactivityStatus, 60000));
  GSource* source = gInactivityStatus.source;
  EXPECT_TRUE(StopInactivityTimer(&gInactivityStatus));
  EXPECT_EQ(gInactivityStatus.source, nullptr);
  EXPECT_EQ(gInactivityStatus.sourceId, 0u);
  EXPECT_TRUE(g_source_is_destroyed(source));
  g_source_unref(source);
}

TEST_F(ServiceTest, StartKeepsTheDeviceAwakeAtOnce) {
  gInactivityStatus.handle = fake_vela::handle();
  ASSERT_TRUE(StartInactivityTimer(&gInactivityStatus, 5000));
  const auto calls = fake_vela::calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].handle, fake_vela::handle());
  EXPECT_EQ(calls[0].payload, "{ \"id\": \"transcode\", \"duration_ms\" : 7500 }");
  EXPECT_EQ(calls[0].callback, nullptr);
}

TEST_F(ServiceTest, TicksBeforeItKeepsTheDeviceAwake) {
  guint sourceId = 0;
  fake_vela::whenCalled([&] { sourceId = gInactivityStatus.sourceId; });
  ASSERT_TRUE(StartInactivityTimer(&gInactivityStatus, 5000));
  EXPECT_NE(sourceId, 0u);
}

TEST_F(ServiceTest, DurationIsHalfAnIntervalLonger) {
  ASSERT_TRUE(StartInactivityTimer(&gInactivityStatus, 333));
  EXPECT_EQ(fake_vela::calls()[0].payload, "{ \"id\": \"transcode\", \"duration_ms\" : 499 }");
}

TEST_F(ServiceTest, FailedKeepAliveIsLoggedAndTheTimerGoesOn) {
  const LogCapture log;
  fake_vela::failNext("VSCall");
  EXPECT_TRUE(StartInactivityTimer(&gInactivityStatus, 5000));
  EXPECT_THAT(log.at(G_LOG_LEVEL_CRITICAL), ElementsAre("activity Start 'transcode' failed !!"));
  EXPECT_EQ(fake_vela::errorsPrinted(), 1);
  EXPECT_NE(gInactivityStatus.source, nullptr);
}

TEST_F(ServiceTest, TickWithALiveTaskKeepsAwakeAndTicksOn) {
  gInactivityStatus.intervalMs = 5000;
  TranscodeServer::taskCount = 1;
  EXPECT_EQ(CallbackInactivityTimeout(&gInactivityStatus), TRUE);
  TranscodeServer::taskCount = 0;
  EXPECT_THAT(fake_vela::operations(), ElementsAre(kKeepAlive));
}

// Runs in a death test's child: prints what the tick did before it ended the process.
void printOperations() {
  for (const auto& operation : fake_vela::operations()) {
    fprintf(stderr, "<%s>", operation.c_str());
  }
}

const LogCapture* gTickLog;

void printLogAndTimer() {
  for (const auto& line : gTickLog->at(G_LOG_LEVEL_DEBUG)) {
    fprintf(stderr, "<%s>", line.c_str());
  }
  fprintf(stderr, gInactivityStatus.source == nullptr ? "stopped" : "ticking");
}

TEST_F(ServiceTest, IdleTickUnregistersAndEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        fake_vela::failNext("VSUnregister");
        gInactivityStatus.handle = fake_vela::handle();
        atexit(printOperations);
        CallbackInactivityTimeout(&gInactivityStatus);
      },
      testing::ExitedWithCode(0), "^<VSUnregister>$");
}

TEST_F(ServiceTest, IdleTickStopsTheTimerAndSaysSo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        gInactivityStatus.handle = fake_vela::handle();
        StartInactivityTimer(&gInactivityStatus, 5000);
        const LogCapture log;
        gTickLog = &log;
        atexit(printLogAndTimer);
        CallbackInactivityTimeout(&gInactivityStatus);
      },
      testing::ExitedWithCode(0),
      "^<----> CallbackInactivityTimeout\n><----> StopInactivityTimer>"
      "<----> Timeout expired, TranscodeService is found inactive and shall be suspended\n>"
      "stopped$");
}

}  // namespace
