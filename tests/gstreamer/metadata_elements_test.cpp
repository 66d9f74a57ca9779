// Each of the metadata pair alone: its properties, events and flow.
#include <gmock/gmock.h>
#include <gst/check/gstharness.h>

#include <memory>

#include "platform/gstreamer/photo/metadata_tag.h"
#include "tests/support/jpeg_media.h"

namespace {

struct HarnessTeardown {
  void operator()(GstHarness* harness) const { gst_harness_teardown(harness); }
};
using HarnessPtr = std::unique_ptr<GstHarness, HarnessTeardown>;

HarnessPtr makeHarness(const char* factory) {
  HarnessPtr harness(gst_harness_new(factory));
  gst_harness_set_src_caps_str(harness.get(), "image/jpeg");
  return harness;
}

GstBuffer* makeBuffer(const Bytes& bytes) {
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, bytes.size(), nullptr);
  gst_buffer_fill(buffer, 0, bytes.data(), bytes.size());
  return buffer;
}

GstFlowReturn push(const HarnessPtr& harness, const Bytes& bytes) {
  return gst_harness_push(harness.get(), makeBuffer(bytes));
}

// All that came out so far.
Bytes pullAll(const HarnessPtr& harness) {
  Bytes all;
  while (GstBuffer* buffer = gst_harness_try_pull(harness.get())) {
    const size_t before = all.size();
    all.resize(before + gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, all.data() + before, all.size() - before);
    gst_buffer_unref(buffer);
  }
  return all;
}

int countEvents(const HarnessPtr& harness, GstEventType type) {
  int count = 0;
  while (GstEvent* event = gst_harness_try_pull_event(harness.get())) {
    count += GST_EVENT_TYPE(event) == type ? 1 : 0;
    gst_event_unref(event);
  }
  return count;
}

Bytes pictureWithMetadata() {
  JpegRecipe recipe;
  recipe.exif = ExifRecipe{.makerNoteBytes = 100};
  recipe.xmp = "<x:xmpmeta/>";
  return makeJpeg(recipe);
}

void pushMetadata(const HarnessPtr& harness, const std::vector<JpegSegment>& segments) {
  gst_harness_push_event(harness.get(), gst_event_new_tag(makeMetadataTags(segments)));
}

TEST(MetadataDemux, PublishesOneGlobalTagBeforeTheDataAndPassesItOnUnchanged) {
  const HarnessPtr harness = makeHarness("metadatademux");
  const Bytes picture = pictureWithMetadata();
  std::vector<JpegSegment> published;
  int tags = 0;
  bool dataCameFirst = false;
  for (uint8_t byte : picture) {
    ASSERT_EQ(push(harness, {byte}), GST_FLOW_OK);
    while (GstEvent* event = gst_harness_try_pull_event(harness.get())) {
      if (GST_EVENT_TYPE(event) == GST_EVENT_TAG) {
        GstTagList* list = nullptr;
        gst_event_parse_tag(event, &list);
        EXPECT_EQ(gst_tag_list_get_scope(list), GST_TAG_SCOPE_GLOBAL);
        EXPECT_TRUE(readMetadataTags(list, &published));
        ++tags;
      }
      gst_event_unref(event);
    }
    dataCameFirst |= tags == 0 && gst_harness_buffers_in_queue(harness.get()) > 0;
  }
  EXPECT_EQ(tags, 1);
  EXPECT_FALSE(dataCameFirst);
  ASSERT_EQ(published.size(), 3u);
  EXPECT_EQ(published[0].marker, 0xE0);
  EXPECT_EQ(published[1].payload, makeExif({.makerNoteBytes = 100}, 64, 48));
  EXPECT_EQ(pullAll(harness), picture);
}

TEST(MetadataDemux, OnlyParsingIsTheDefault) {
  const HarnessPtr harness(gst_harness_new("metadatademux"));
  gboolean parseOnly = FALSE;
  gst_harness_get(harness.get(), "metadatademux", "parse-only", &parseOnly, nullptr);
  EXPECT_TRUE(parseOnly);
}

TEST(MetadataDemux, TellsTheCapsThatItsSourceDoesNotTell) {
  const HarnessPtr harness(gst_harness_new("metadatademux"));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_BYTES);
  gst_harness_push_event(harness.get(), gst_event_new_stream_start("file"));
  gst_harness_push_event(harness.get(), gst_event_new_segment(&segment));
  ASSERT_EQ(push(harness, pictureWithMetadata()), GST_FLOW_OK);
  EXPECT_EQ(countEvents(harness, GST_EVENT_CAPS), 1);
}

TEST(MetadataDemux, AFlushBeginsAnew) {
  const HarnessPtr harness = makeHarness("metadatademux");
  const Bytes picture = pictureWithMetadata();
  ASSERT_EQ(push(harness, Bytes(picture.begin(), picture.begin() + 50)), GST_FLOW_OK);
  gst_harness_push_event(harness.get(), gst_event_new_flush_start());
  gst_harness_push_event(harness.get(), gst_event_new_flush_stop(TRUE));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_BYTES);
  gst_harness_push_event(harness.get(), gst_event_new_segment(&segment));
  ASSERT_EQ(push(harness, picture), GST_FLOW_OK);
  EXPECT_EQ(pullAll(harness), picture);
}

TEST(MetadataDemux, WhatComesAfterAnErrorIsRefused) {
  const HarnessPtr harness = makeHarness("metadatademux");
  EXPECT_EQ(push(harness, {'G', 'I', 'F'}), GST_FLOW_ERROR);
  EXPECT_EQ(push(harness, pictureWithMetadata()), GST_FLOW_ERROR);
  EXPECT_TRUE(pullAll(harness).empty());
}

TEST(MetadataMux, EndsBehindTheFirstPicture) {
  const HarnessPtr harness = makeHarness("metadatamux");
  const Bytes picture = makeJpeg({});
  EXPECT_EQ(push(harness, picture), GST_FLOW_EOS);
  EXPECT_EQ(countEvents(harness, GST_EVENT_EOS), 1);
  EXPECT_EQ(push(harness, picture), GST_FLOW_EOS);
  EXPECT_TRUE(gst_harness_push_event(harness.get(), gst_event_new_eos()));
  EXPECT_EQ(pullAll(harness), picture);
}

TEST(MetadataMux, AnEndWithoutAPictureIsPassedOn) {
  const HarnessPtr harness = makeHarness("metadatamux");
  EXPECT_TRUE(gst_harness_push_event(harness.get(), gst_event_new_eos()));
  EXPECT_EQ(countEvents(harness, GST_EVENT_EOS), 1);
}

TEST(MetadataMux, KeepsTheMetadataTagAndPassesOthersOn) {
  const HarnessPtr harness = makeHarness("metadatamux");
  pushMetadata(harness, {{0xFE, {'h', 'i'}}});
  EXPECT_EQ(countEvents(harness, GST_EVENT_TAG), 0);
  gst_harness_push_event(harness.get(),
                         gst_event_new_tag(gst_tag_list_new(GST_TAG_TITLE, "title", nullptr)));
  EXPECT_EQ(countEvents(harness, GST_EVENT_TAG), 1);
  const Bytes picture = makeJpeg({.jfif = false});
  EXPECT_EQ(push(harness, picture), GST_FLOW_EOS);
  EXPECT_EQ(pullAll(harness), insertBytes(picture, 2, makeSegment(0xFE, {'h', 'i'})));
}

TEST(MetadataMux, ATooLongSegmentIsLeftOutWithAWarning) {
  const HarnessPtr harness = makeHarness("metadatamux");
  GstBus* bus = gst_bus_new();
  gst_element_set_bus(harness->element, bus);
  pushMetadata(harness, {{0xE1, Bytes(kMaxSegmentPayload + 1, 7)}, {0xFE, {}}});
  const Bytes picture = makeJpeg({.jfif = false});
  EXPECT_EQ(push(harness, picture), GST_FLOW_EOS);
  EXPECT_EQ(pullAll(harness), insertBytes(picture, 2, makeSegment(0xFE, {})));
  GstMessage* warning = gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING);
  EXPECT_NE(warning, nullptr);
  gst_clear_message(&warning);
  gst_element_set_bus(harness->element, nullptr);
  gst_object_unref(bus);
}

TEST(MetadataMux, WhatIsNoPictureIsAnError) {
  const HarnessPtr harness = makeHarness("metadatamux");
  EXPECT_EQ(push(harness, {0xFF, 0xD8, 0xFF}), GST_FLOW_ERROR);
}

TEST(MetadataMux, ANewStreamForgetsTheOldMetadata) {
  const HarnessPtr harness = makeHarness("metadatamux");
  pushMetadata(harness, {{0xFE, {'h', 'i'}}});
  gst_harness_push_event(harness.get(), gst_event_new_stream_start("another"));
  const Bytes picture = makeJpeg({});
  EXPECT_EQ(push(harness, picture), GST_FLOW_EOS);
  EXPECT_EQ(pullAll(harness), picture);
}

}  // namespace
