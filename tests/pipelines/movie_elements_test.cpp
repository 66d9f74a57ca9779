// The elements of the movie pipeline one by one.
#include <gmock/gmock.h>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/pipelines/file_transcode.h"
#include "tests/support/log_capture.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

GstElement* make(const char* factory) {
  GstElement* element = gst_element_factory_make(factory, nullptr);
  return element ? GST_ELEMENT(gst_object_ref_sink(element)) : nullptr;
}

// The first ERROR message within 10 s; its domain, 0 when there is none.
GQuark waitForError(GstBus* bus) {
  GstMessage* message = gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND, GST_MESSAGE_ERROR);
  if (message == nullptr) return 0;
  GError* error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  const GQuark domain = error->domain;
  g_error_free(error);
  gst_message_unref(message);
  return domain;
}

TEST(MovieElements, HaveTheirPropertiesAndPads) {
  for (const char* name : {"tarnvideoencoder", "tarnaudioencoder"}) {
    GstElement* element = make(name);
    ASSERT_NE(element, nullptr) << name;
    gboolean enabled = FALSE;
    g_object_get(element, "enable", &enabled, nullptr);
    EXPECT_TRUE(enabled);
    EXPECT_NE(gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(element), "sink"), nullptr);
    EXPECT_NE(gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(element), "src"), nullptr);
    gst_object_unref(element);
  }
  GstElement* muxer = make("tarnmpeg4mux");
  ASSERT_NE(muxer, nullptr);
  g_object_set(muxer, "enable", FALSE, "location", "/a/b.mp4", "StreamMuxSelection", 2, nullptr);
  gboolean enabled = TRUE;
  int selection = 0;
  gchar* location = nullptr;
  g_object_get(muxer, "enable", &enabled, "location", &location, "StreamMuxSelection", &selection,
               nullptr);
  EXPECT_FALSE(enabled);
  EXPECT_EQ(selection, 2);
  EXPECT_STREQ(location, "/a/b.mp4");
  g_free(location);
  gst_object_unref(muxer);
}

// An audio encoder in a harness, disabled, with one second of silence on its way in.
class HeldEncoder : public testing::Test {
 protected:
  HeldEncoder() : harness(gst_harness_new("tarnaudioencoder")), bus(gst_bus_new()) {
    g_object_set(harness->element, "enable", FALSE, nullptr);
    gst_element_set_bus(harness->element, bus);
    gst_harness_set_src_caps_str(
        harness, "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved");
    pusher = std::thread([this] {
      GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 48000 * 4, nullptr);
      gst_buffer_memset(buffer, 0, 0, 48000 * 4);
      GST_BUFFER_PTS(buffer) = 0;
      GST_BUFFER_DURATION(buffer) = GST_SECOND;
      result = gst_harness_push(harness, buffer);
    });
  }
  ~HeldEncoder() override {
    if (pusher.joinable()) pusher.join();
    gst_bus_set_flushing(bus, TRUE);
    gst_element_set_bus(harness->element, nullptr);
    gst_harness_teardown(harness);
    gst_object_unref(bus);
  }
  GstFlowReturn pushed() {
    pusher.join();
    return result;
  }

  GstHarness* harness;
  GstBus* bus;
  GstFlowReturn result = GST_FLOW_CUSTOM_SUCCESS;
  std::thread pusher;
};

TEST_F(HeldEncoder, LetsDataThroughOnceEnabled) {
  g_object_set(harness->element, "enable", TRUE, nullptr);
  EXPECT_EQ(pushed(), GST_FLOW_OK);
  GstBuffer* encoded = gst_harness_pull(harness);
  EXPECT_NE(encoded, nullptr);
  if (encoded != nullptr) gst_buffer_unref(encoded);
}

TEST_F(HeldEncoder, IsAnErrorWhenNobodyEnablesIt) {
  EXPECT_EQ(waitForError(bus), GST_STREAM_ERROR);
  EXPECT_EQ(pushed(), GST_FLOW_ERROR);
}

TEST_F(HeldEncoder, LetsGoWhenItsStateGoesDown) {
  gst_element_set_state(harness->element, GST_STATE_READY);
  EXPECT_EQ(pushed(), GST_FLOW_FLUSHING);
}

TEST(Mpeg4Mux, TheEndOfAStreamBeforeItIsEnabledIsAnError) {
  TempDir folder;
  GstElement* pipeline = gst_parse_launch(
      "fakesrc num-buffers=0 ! capsfilter caps=audio/mpeg,mpegversion=4,stream-format=raw ! "
      "muxer.sinkAudio tarnmpeg4mux name=muxer enable=false",
      nullptr);
  ASSERT_NE(pipeline, nullptr);
  GstElement* muxer = gst_bin_get_by_name(GST_BIN(pipeline), "muxer");
  g_object_set(muxer, "location", (folder / "out.mp4").c_str(), nullptr);
  gst_object_unref(muxer);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus* bus = gst_element_get_bus(pipeline);
  EXPECT_EQ(waitForError(bus), GST_STREAM_ERROR);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
}

// The muxer stays down when it is raised while its pipeline is brought down.
TEST(Mpeg4Mux, DoesNotRiseAgainstItsPipeline) {
  TempDir folder;
  GstElement* pipeline = gst_parse_launch("fakesrc name=last tarnmpeg4mux name=muxer", nullptr);
  ASSERT_NE(pipeline, nullptr);
  GstElement* muxer = gst_bin_get_by_name(GST_BIN(pipeline), "muxer");
  g_object_set(muxer, "location", (folder / "out.mp4").c_str(), nullptr);
  gst_element_set_state(pipeline, GST_STATE_READY);

  struct Attempt {
    GstElement* muxer;
    int count;
    GstStateChangeReturn result;
  } attempt = {muxer, 0, GST_STATE_CHANGE_SUCCESS};
  GstBus* bus = gst_element_get_bus(pipeline);
  gst_bus_set_sync_handler(
      bus,
      [](GstBus*, GstMessage* message, gpointer data) {
        auto* wanted = static_cast<Attempt*>(data);
        const bool isLast = GST_MESSAGE_TYPE(message) == GST_MESSAGE_STATE_CHANGED &&
                            g_strcmp0(GST_MESSAGE_SRC_NAME(message), "last") == 0;
        if (isLast) {
          ++wanted->count;
          wanted->result = gst_element_set_state(wanted->muxer, GST_STATE_PLAYING);
        }
        return GST_BUS_PASS;
      },
      &attempt, nullptr);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  EXPECT_EQ(attempt.count, 1);
  EXPECT_EQ(attempt.result, GST_STATE_CHANGE_FAILURE);
  EXPECT_EQ(GST_STATE(muxer), GST_STATE_NULL);
  gst_object_unref(muxer);
  gst_object_unref(pipeline);
}

// What decodebin2 told its handlers while it opened a file.
struct Opening {
  std::vector<std::string> pads;
  std::vector<int> last;
  std::vector<std::string> selected;
  int answer = 0;
};

void onPad(GstElement*, GstPad* pad, int last, Opening* opening) {
  GstCaps* caps = gst_pad_get_current_caps(pad);
  opening->pads.emplace_back(caps ? gst_structure_get_name(gst_caps_get_structure(caps, 0))
                                  : "no caps");
  opening->last.push_back(last);
  if (caps != nullptr) gst_caps_unref(caps);
}

int onSelect(GstElement*, GstPad*, GstCaps*, GstElementFactory* factory, Opening* opening) {
  opening->selected.emplace_back(GST_OBJECT_NAME(factory));
  return opening->answer;
}

// Opens the file and waits until every stream is announced or it failed.
void openFile(const std::string& path, Opening* opening, bool withTheTasksSelection) {
  GstElement* pipeline = gst_parse_launch("filesrc name=file ! decodebin2 name=decoder", nullptr);
  ASSERT_NE(pipeline, nullptr);
  GstElement* file = gst_bin_get_by_name(GST_BIN(pipeline), "file");
  GstElement* decoder = gst_bin_get_by_name(GST_BIN(pipeline), "decoder");
  g_object_set(file, "location", path.c_str(), nullptr);
  g_signal_connect(decoder, "new-decoded-pad", G_CALLBACK(onPad), opening);
  if (withTheTasksSelection) {
    g_signal_connect(decoder, "autoplug-select",
                     G_CALLBACK(FileTranscode::autoplugSelectBindingCallback), nullptr);
  }
  g_signal_connect(decoder, "autoplug-select", G_CALLBACK(onSelect), opening);
  gst_element_set_state(pipeline, GST_STATE_PAUSED);
  GstBus* bus = gst_element_get_bus(pipeline);
  GstMessage* message = gst_bus_timed_pop_filtered(
      bus, 10 * GST_SECOND,
      static_cast<GstMessageType>(GST_MESSAGE_ASYNC_DONE | GST_MESSAGE_ERROR));
  EXPECT_NE(message, nullptr);
  if (message != nullptr) gst_message_unref(message);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(bus);
  gst_object_unref(file);
  gst_object_unref(decoder);
  gst_object_unref(pipeline);
}

TEST(DecodeBin2, AnnouncesEveryPadWithItsCapsAndTheLastAsSuch) {
  Opening opening;
  openFile(movieClip(ClipRecipe{}), &opening, false);
  EXPECT_THAT(opening.pads, testing::UnorderedElementsAre("video/x-raw", "audio/x-raw"));
  EXPECT_THAT(opening.last, testing::ElementsAre(0, 1));
}

TEST(DecodeBin2, AsksAboutEveryFactory) {
  Opening opening;
  opening.answer = 2;  // skip
  openFile(movieClip(ClipRecipe{}), &opening, false);
  EXPECT_THAT(opening.selected, testing::Contains("qtdemux"));
  EXPECT_THAT(opening.pads, testing::IsEmpty());
}

// The first handler that decides is the last that is asked.
TEST(DecodeBin2, TheTasksSelectionKeepsTheBareDemuxerOut) {
  ClipRecipe recipe;
  recipe.name = "a.mp3";
  recipe.videoCodec = "";
  recipe.audioCodec = "libmp3lame";
  recipe.more = {"-id3v2_version", "0", "-write_xing", "0"};
  const LogCapture log;
  Opening without;
  openFile(movieClip(recipe), &without, false);
  EXPECT_THAT(without.selected, testing::Contains("tarnmp3demux"));
  Opening with;
  openFile(movieClip(recipe), &with, true);
  EXPECT_THAT(with.selected, testing::Not(testing::Contains("tarnmp3demux")));
  EXPECT_THAT(with.pads, testing::ElementsAre("audio/x-raw"));
}

TEST(DecodeBin2, AnswersForItselfWithoutHandlers) {
  GstElement* element = make("decodebin2");
  GstPad* pad = gst_element_get_static_pad(element, "sink");
  GstCaps* caps = gst_caps_new_empty_simple("audio/x-raw");
  gboolean goOn = FALSE;
  g_signal_emit_by_name(element, "autoplug-continue", pad, caps, &goOn);
  EXPECT_TRUE(goOn);
  int choice = 7;
  g_signal_emit_by_name(element, "autoplug-select", pad, caps, nullptr, &choice);
  EXPECT_EQ(choice, 0);
  gst_caps_unref(caps);
  gst_object_unref(pad);
  gst_object_unref(element);
}

}  // namespace
