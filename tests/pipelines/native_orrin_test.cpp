// How the decode-encode-mux pipeline is built, linked and released, on elements that record it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "src/pipelines/mpeg_transcode_native_orrin.h"
#include "tests/pipelines/fake_elements.h"
#include "tests/pipelines/live_objects.h"
#include "tests/support/log_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kSetup[] = "+ virtual int MpegTranscodeNativeOrrin::setupPipeline()\n";
constexpr char kSetupFailed[] =
    "- virtual int MpegTranscodeNativeOrrin::setupPipeline() returning -1\n";
constexpr char kTeardown[] = "virtual bool MpegTranscodeNativeOrrin::teardown(int)\n";
constexpr char kBaseTeardown[] = "virtual bool MpegTranscodeNativeGst::teardown(int)\n";

class Task : public MpegTranscodeNativeOrrin {
 public:
  using Base = MpegTranscodeNativeOrrin;
  Task() : Base(nullptr) {
    inFile = "/in/a.mp4";
    outFile = "/out/b.mp4";
  }
  using Base::audioEncoderElement;
  using Base::audioLinked;
  using Base::autoplugContinueBindingCallback;
  using Base::autoplugContinueHandlerId;
  using Base::autoplugSelectBindingCallback;
  using Base::autoplugSelectHandlerId;
  using Base::busWatchId;
  using Base::decodeBin;
  using Base::fileSource;
  using Base::muxerElement;
  using Base::newDecodedPadHandlerId;
  using Base::pipeline;
  using Base::spareElementA;
  using Base::spareElementB;
  using Base::videoEncoderElement;
  using Base::videoLinked;

  std::vector<GstElement*> held() const {
    return {fileSource,          GST_ELEMENT_CAST(decodeBin), spareElementA, spareElementB,
            videoEncoderElement, audioEncoderElement,         muxerElement};
  }
  bool holdsNothing() const {
    for (GstElement* element : held()) {
      if (element != nullptr) return false;
    }
    return pipeline == nullptr;
  }
  bool teardown(int seconds) override {
    asked.push_back(seconds);
    return Base::teardown(seconds);
  }
  void announce(const fake::DecodedPad& pad, bool last = false) {
    g_signal_emit_by_name(decodeBin, "new-decoded-pad", pad.get(), last);
  }

  std::vector<int> asked;  // of the virtual teardown
};

class NativeOrrin : public testing::Test {
 protected:
  void SetUp() override {
    fake::registerElements();
    fake::record.clear();
    liveBefore = liveObjects();
  }
  void TearDown() override {
    fake::missingPad.clear();
    fake::refuseStates = false;
  }
  std::map<std::string, int> liveBefore;
};

std::string stringOf(GstElement* element, const char* property) {
  gchar* value = nullptr;
  g_object_get(element, property, &value, nullptr);
  const std::string result = value ? value : "";
  g_free(value);
  return result;
}

TEST_F(NativeOrrin, StartsEmpty) {
  Task task;
  EXPECT_TRUE(task.holdsNothing());
  EXPECT_EQ(task.newDecodedPadHandlerId, 0U);
  EXPECT_EQ(task.autoplugContinueHandlerId, 0U);
  EXPECT_EQ(task.autoplugSelectHandlerId, 0U);
  EXPECT_FALSE(task.videoLinked);
  EXPECT_FALSE(task.audioLinked);
}

TEST_F(NativeOrrin, SetupSetsAndLinksInOrder) {
  Task task;
  LogCapture log;
  ASSERT_EQ(task.setupPipeline(), 0);
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), ElementsAre(kSetup));
  EXPECT_THAT(
      fake::record,
      ElementsAre("decodeSink linked", "videoenc enable=0", "audioenc enable=0",
                  "tarnmpeg4mux enable=0", "tarnmpeg4mux location=/out/b.mp4",
                  "tarnmpeg4mux StreamMuxSelection=0", "sinkAudio linked", "sinkVideo linked"));
  EXPECT_EQ(stringOf(task.fileSource, "location"), "/in/a.mp4");
  EXPECT_STREQ(GST_OBJECT_NAME(task.videoEncoderElement), "videoenc");
  EXPECT_STREQ(GST_OBJECT_NAME(task.audioEncoderElement), "audioenc");
  EXPECT_EQ(task.busWatchId, 0xffffffff);
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, SetupTakesAReferenceBesideThePipelines) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  // The last one that was added comes first.
  std::vector<GstElement*> children;
  for (GList* child = GST_BIN_CHILDREN(task.pipeline); child != nullptr; child = child->next) {
    children.push_back(GST_ELEMENT(child->data));
  }
  EXPECT_THAT(children,
              ElementsAre(task.muxerElement, task.audioEncoderElement, task.videoEncoderElement,
                          GST_ELEMENT(task.decodeBin), task.fileSource));
  for (GstElement* child : children) {
    EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(child), 2);
  }
  EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(task.pipeline), 1);
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, SetupConnectsTheThreeHandlersInOrder) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  EXPECT_LT(task.newDecodedPadHandlerId, task.autoplugContinueHandlerId);
  EXPECT_LT(task.autoplugContinueHandlerId, task.autoplugSelectHandlerId);
  const struct {
    unsigned long id;
    const char* signal;
  } handlers[] = {{task.newDecodedPadHandlerId, "new-decoded-pad"},
                  {task.autoplugContinueHandlerId, "autoplug-continue"},
                  {task.autoplugSelectHandlerId, "autoplug-select"}};
  for (const auto& handler : handlers) {
    const guint signal = g_signal_lookup(handler.signal, G_OBJECT_TYPE(task.decodeBin));
    const auto match = static_cast<GSignalMatchType>(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_DATA);
    EXPECT_EQ(g_signal_handler_find(task.decodeBin, match, signal, 0, nullptr, nullptr,
                                    static_cast<MpegTranscodeNativeOrrin*>(&task)),
              handler.id);
  }
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, ASecondSetupChangesNothing) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const auto held = task.held();
  GstElement* const pipeline = task.pipeline;
  fake::record.clear();
  LogCapture log;
  EXPECT_EQ(task.setupPipeline(), -1);
  EXPECT_EQ(task.held(), held);
  EXPECT_EQ(task.pipeline, pipeline);
  EXPECT_THAT(fake::record, IsEmpty());
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), IsEmpty());
  EXPECT_TRUE(task.teardown(5));
}

class NativeOrrinWithout : public NativeOrrin, public testing::WithParamInterface<const char*> {
 protected:
  void expectCleanFailure() {
    LogCapture log;
    Task task;
    EXPECT_EQ(task.setupPipeline(), -1);
    EXPECT_THAT(task.asked, ElementsAre(5));
    EXPECT_TRUE(task.holdsNothing());
    EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE),
                ElementsAre(kSetup, kSetupFailed, kTeardown, kBaseTeardown));
    EXPECT_EQ(liveObjects(), liveBefore);
    EXPECT_EQ(task.run(), LaunchFailed);
  }
};

class NativeOrrinFactory : public NativeOrrinWithout {};
TEST_P(NativeOrrinFactory, SetupFailsAndReleasesEverything) {
  const fake::WithoutFactory without(GetParam());
  expectCleanFailure();
}
INSTANTIATE_TEST_SUITE_P(Missing, NativeOrrinFactory,
                         testing::Values("filesrc", "decodebin2", "tarnvideoencoder",
                                         "tarnaudioencoder", "tarnmpeg4mux"),
                         [](const auto& test) { return std::string(test.param); });

class NativeOrrinPad : public NativeOrrinWithout {};
TEST_P(NativeOrrinPad, SetupFailsAndReleasesEverything) {
  fake::missingPad = GetParam();
  expectCleanFailure();
}
INSTANTIATE_TEST_SUITE_P(Missing, NativeOrrinPad,
                         testing::Values("decodeSink", "src", "sinkAudio", "sinkVideo"),
                         [](const auto& test) { return std::string(test.param); });

constexpr char kAudio[] = "audio/x-raw";
constexpr char kVideo[] = "video/x-raw";
const auto kEnabling = std::vector<std::string>{"videoenc -> PLAYING",     "audioenc -> PLAYING",
                                                "tarnmpeg4mux -> PLAYING", "tarnmpeg4mux enable=1",
                                                "videoenc enable=1",       "audioenc enable=1"};

std::vector<std::string> withoutLinks(const std::vector<std::string>& lines) {
  std::vector<std::string> kept;
  for (const std::string& line : lines) {
    if (line.find("linked") == std::string::npos) kept.push_back(line);
  }
  return kept;
}

TEST_F(NativeOrrin, AudioFirstWaitsForVideoThenEnablesInOrder) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  fake::record.clear();
  LogCapture log;
  const fake::DecodedPad audio(kAudio);
  task.announce(audio);
  EXPECT_EQ(audio.peer(), "audioenc:sink");
  EXPECT_TRUE(task.audioLinked);
  EXPECT_FALSE(task.videoLinked);
  EXPECT_THAT(withoutLinks(fake::record), IsEmpty());

  const fake::DecodedPad video(kVideo);
  task.announce(video, true);
  EXPECT_EQ(video.peer(), "videoenc:sink");
  EXPECT_TRUE(task.videoLinked);
  EXPECT_EQ(withoutLinks(fake::record), kEnabling);
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE),
              ElementsAre("Audiosink linked to decodebin", "VideoSink linked to decodebin"));
  EXPECT_TRUE(task.teardown(5));
  EXPECT_TRUE(task.audioLinked && task.videoLinked);
}

TEST_F(NativeOrrin, VideoFirstWaitsForAudio) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  fake::record.clear();
  const fake::DecodedPad video(kVideo);
  task.announce(video);
  EXPECT_THAT(withoutLinks(fake::record), IsEmpty());
  const fake::DecodedPad audio(kAudio);
  task.announce(audio);
  EXPECT_EQ(withoutLinks(fake::record), kEnabling);
  EXPECT_TRUE(task.teardown(5));
}

class NativeOrrinLaterPad : public NativeOrrin, public testing::WithParamInterface<const char*> {};

TEST_P(NativeOrrinLaterPad, StaysUnlinkedButEnablesAgain) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const fake::DecodedPad audio(kAudio);
  const fake::DecodedPad video(kVideo);
  task.announce(audio);
  task.announce(video);
  fake::record.clear();
  LogCapture log;
  const fake::DecodedPad later(GetParam());
  task.announce(later, true);
  EXPECT_EQ(later.peer(), "");
  EXPECT_EQ(fake::record, kEnabling);
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), IsEmpty());
  EXPECT_TRUE(task.teardown(5));
}
const char* const kLaterPads[] = {"Audio", "Video", "Text", "WithoutCaps"};
INSTANTIATE_TEST_SUITE_P(Kinds, NativeOrrinLaterPad,
                         testing::Values(kAudio, kVideo, "text/x-raw", ""),
                         [](const auto& test) { return std::string(kLaterPads[test.index]); });

TEST_F(NativeOrrin, TheMediaTypeIsSearchedForTheWords) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const fake::DecodedPad both("x-video/x-audio");
  task.announce(both);
  EXPECT_EQ(both.peer(), "audioenc:sink");
  // With the audio linked the other word counts.
  const fake::DecodedPad again("x-video/x-audio");
  task.announce(again);
  EXPECT_EQ(again.peer(), "videoenc:sink");
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, TheFirstOfSeveralMediaTypesCounts) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const fake::DecodedPad pad("audio/x-raw; video/x-raw");
  task.announce(pad);
  EXPECT_EQ(pad.peer(), "audioenc:sink");
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, ThePadsCapsAreNotKept) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const fake::DecodedPad pad("text/x-raw");
  GstCaps* caps = gst_pad_get_current_caps(pad.get());
  const int before = GST_CAPS_REFCOUNT_VALUE(caps);
  task.announce(pad);
  EXPECT_EQ(GST_CAPS_REFCOUNT_VALUE(caps), before);
  gst_caps_unref(caps);
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, NeitherWordLinksNothing) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  fake::record.clear();
  const fake::DecodedPad text("text/x-raw");
  const fake::DecodedPad nothing("");
  task.announce(text);
  task.announce(nothing);
  EXPECT_THAT(fake::record, IsEmpty());
  EXPECT_FALSE(task.audioLinked || task.videoLinked);
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, ALinkThatFailsIsTakenForDone) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const fake::DecodedPad first(kAudio);
  GstPad* sink = gst_element_get_static_pad(task.audioEncoderElement, "sink");
  ASSERT_EQ(gst_pad_link(first.get(), sink), GST_PAD_LINK_OK);
  gst_object_unref(sink);
  const fake::DecodedPad second(kAudio);
  task.announce(second);
  EXPECT_EQ(second.peer(), "");
  EXPECT_TRUE(task.audioLinked);
  EXPECT_TRUE(task.teardown(5));
}

TEST_F(NativeOrrin, EveryPadIsPluggedOn) {
  EXPECT_TRUE(Task::autoplugContinueBindingCallback(nullptr, nullptr, nullptr, nullptr));
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  const fake::DecodedPad pad(kAudio);
  GstCaps* caps = gst_caps_from_string(kAudio);
  gboolean result = FALSE;
  g_signal_emit_by_name(task.decodeBin, "autoplug-continue", pad.get(), caps, &result);
  EXPECT_TRUE(result);
  gst_caps_unref(caps);
  EXPECT_TRUE(task.teardown(5));
}

// A factory of that name whose elements have that long name.
GstElementFactory* factoryOf(const std::string& name, const std::string& longName) {
  static std::string chosen;
  chosen = longName;
  const GTypeInfo info = {sizeof(GstElementClass),
                          nullptr,
                          nullptr,
                          [](gpointer type, gpointer) {
                            gst_element_class_set_metadata(GST_ELEMENT_CLASS(type), chosen.c_str(),
                                                           "Testing", "Nothing", "Tests");
                          },
                          nullptr,
                          nullptr,
                          sizeof(GstElement),
                          0,
                          nullptr,
                          nullptr};
  static int number = 0;
  const std::string typeName = "SelectionProbe" + std::to_string(++number);
  const GType type =
      g_type_register_static(GST_TYPE_ELEMENT, typeName.c_str(), &info, static_cast<GTypeFlags>(0));
  gst_element_register(nullptr, name.c_str(), GST_RANK_NONE, type);
  return gst_element_factory_find(name.c_str());
}

int selectionOf(GstElementFactory* factory) {
  GstCaps* caps = gst_caps_from_string(kAudio);
  const int result = Task::autoplugSelectBindingCallback(nullptr, nullptr, caps, factory, nullptr);
  gst_caps_unref(caps);
  return result;
}

TEST_F(NativeOrrin, DemuxersAreSkippedByTheirLongNames) {
  const struct {
    const char* name;
    const char* longName;
    int result;
  } cases[] = {{"probea", "tarnamrdemux", 2},         {"probeb", "tarnmp3demux", 2},
               {"tarnmp3demux", "An MP3 demuxer", 0}, {"probec", "tarnmp3demux 2", 0},
               {"probed", "Tarnmp3demux", 0},         {"probee", "tarnmp3demu", 0}};
  for (const auto& each : cases) {
    GstElementFactory* factory = factoryOf(each.name, each.longName);
    LogCapture log;
    EXPECT_EQ(selectionOf(factory), each.result) << each.longName;
    EXPECT_THAT(
        log.at(G_LOG_LEVEL_DEBUG),
        ElementsAre("Autoplug Factory " + std::string(each.longName) + " caps audio/x-raw\n"));
    EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), IsEmpty());
    gst_object_unref(factory);
  }
}

TEST_F(NativeOrrin, ANullFactoryIsTriedWithAWarning) {
  LogCapture log;
  EXPECT_EQ(selectionOf(nullptr), 0);
  EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), ElementsAre("autoplugSelectBinding: Factory NULL!"));
  EXPECT_THAT(log.at(G_LOG_LEVEL_DEBUG), IsEmpty());
}

TEST_F(NativeOrrin, TeardownOfNothingReturnsTrue) {
  Task task;
  LogCapture log;
  EXPECT_TRUE(task.teardown(5));
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), ElementsAre(kTeardown, kBaseTeardown));
  EXPECT_TRUE(task.holdsNothing());
}

TEST_F(NativeOrrin, TeardownWaitsAsLongAsItIsTold) {
  Task task;
  task.pipeline = fake::newScriptedPipeline(GST_STATE_CHANGE_ASYNC, GST_STATE_CHANGE_SUCCESS);
  fake::waitedNs = GST_CLOCK_TIME_NONE;
  EXPECT_TRUE(task.teardown(7));
  EXPECT_EQ(fake::waitedNs, 7 * GST_SECOND);
}

// What GLib says of signals while this lives: disconnecting twice is a complaint.
class SignalComplaints {
 public:
  SignalComplaints()
      : handler(g_log_set_handler(
            "GLib-GObject", G_LOG_LEVEL_MASK,
            [](const gchar*, GLogLevelFlags, const gchar*, gpointer self) {
              ++static_cast<SignalComplaints*>(self)->count;
            },
            this)) {}
  ~SignalComplaints() { g_log_remove_handler("GLib-GObject", handler); }
  SignalComplaints(const SignalComplaints&) = delete;
  SignalComplaints& operator=(const SignalComplaints&) = delete;

  int count = 0;

 private:
  const guint handler;
};

TEST_F(NativeOrrin, TeardownReleasesEverythingAndTwiceIsHarmless) {
  {
    Task task;
    ASSERT_EQ(task.setupPipeline(), 0);
    task.spareElementA = gst_element_factory_make("fakesink", nullptr);
    task.spareElementB = gst_element_factory_make("fakesink", nullptr);
    const unsigned long ids[] = {task.newDecodedPadHandlerId, task.autoplugContinueHandlerId,
                                 task.autoplugSelectHandlerId};
    EXPECT_TRUE(task.teardown(5));
    EXPECT_TRUE(task.holdsNothing());
    EXPECT_TRUE(task.teardown(5));
    EXPECT_EQ(task.newDecodedPadHandlerId, ids[0]);
    EXPECT_EQ(task.autoplugContinueHandlerId, ids[1]);
    EXPECT_EQ(task.autoplugSelectHandlerId, ids[2]);
  }
  EXPECT_EQ(liveObjects(), liveBefore);
}

TEST_F(NativeOrrin, TeardownDisconnectsWhatIsStillConnected) {
  Task task;
  ASSERT_EQ(task.setupPipeline(), 0);
  g_signal_handler_disconnect(task.decodeBin, task.autoplugContinueHandlerId);
  auto* const decodeBin = static_cast<GstElement*>(gst_object_ref(task.decodeBin));
  SignalComplaints complaints;
  EXPECT_TRUE(task.teardown(5));
  EXPECT_EQ(complaints.count, 0);
  for (const unsigned long id : {task.newDecodedPadHandlerId, task.autoplugContinueHandlerId,
                                 task.autoplugSelectHandlerId}) {
    EXPECT_FALSE(g_signal_handler_is_connected(decodeBin, id));
  }
  EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(decodeBin), 1);
  gst_object_unref(decodeBin);
}

TEST_F(NativeOrrin, ARefusedStateChangeStillReleasesTheElements) {
  {
    Task task;
    ASSERT_EQ(task.setupPipeline(), 0);
    gst_element_set_state(task.pipeline, GST_STATE_READY);
    fake::refuseStates = true;
    EXPECT_TRUE(task.teardown(5));
    EXPECT_NE(task.pipeline, nullptr);
    for (GstElement* element : task.held()) {
      EXPECT_EQ(element, nullptr);
    }
    fake::refuseStates = false;
  }
  // The destructor brought the pipeline down.
  EXPECT_EQ(liveObjects(), liveBefore);
}

TEST_F(NativeOrrin, TheDestructorLeavesTheElementsAlone) {
  auto task = std::make_unique<Task>();
  ASSERT_EQ(task->setupPipeline(), 0);
  std::vector<GstElement*> held;
  for (GstElement* element : task->held()) {
    if (element != nullptr) held.push_back(element);
  }
  const unsigned long id = task->newDecodedPadHandlerId;
  task.reset();
  EXPECT_EQ(held.size(), 5U);
  EXPECT_TRUE(g_signal_handler_is_connected(held[1], id));
  for (GstElement* element : held) {
    EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(element), 1);
    gst_object_unref(element);
  }
  EXPECT_EQ(liveObjects(), liveBefore);
}

}  // namespace
