// The scaler: what it agrees to, and the pixels it makes.
#include <gmock/gmock.h>
#include <gst/check/gstharness.h>
#include <gst/video/video.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>

namespace {

struct HarnessTeardown {
  void operator()(GstHarness* harness) const { gst_harness_teardown(harness); }
};
using HarnessPtr = std::unique_ptr<GstHarness, HarnessTeardown>;

// A picture in memory; the samples of a component are reached one by one.
class Picture {
 public:
  Picture(GstVideoFormat format, int width, int height) {
    gst_video_info_set_format(&info, format, static_cast<guint>(width), static_cast<guint>(height));
    buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
    gst_buffer_memset(buffer, 0, 0, info.size);
    gst_video_frame_map(&frame, &info, buffer, GST_MAP_READWRITE);
  }
  // Takes the buffer over.
  Picture(GstVideoFormat format, int width, int height, GstBuffer* filled) : buffer(filled) {
    gst_video_info_set_format(&info, format, static_cast<guint>(width), static_cast<guint>(height));
    EXPECT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ));
  }
  ~Picture() {
    gst_video_frame_unmap(&frame);
    gst_buffer_unref(buffer);
  }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  guint components() const { return GST_VIDEO_FRAME_N_COMPONENTS(&frame); }
  int width(guint c = 0) const { return GST_VIDEO_FRAME_COMP_WIDTH(&frame, c); }
  int height(guint c = 0) const { return GST_VIDEO_FRAME_COMP_HEIGHT(&frame, c); }
  uint8_t& at(int x, int y, guint c = 0) const {
    auto* samples = static_cast<uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, c));
    return samples[y * GST_VIDEO_FRAME_COMP_STRIDE(&frame, c) +
                   x * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, c)];
  }
  void paint(const std::function<double(int x, int y, guint c)>& value) {
    each([&](int x, int y, guint c) {
      at(x, y, c) = static_cast<uint8_t>(std::lround(value(x, y, c)));
    });
  }
  void each(const std::function<void(int x, int y, guint c)>& visit) const {
    for (guint c = 0; c < components(); c++) {
      for (int y = 0; y < height(c); y++) {
        for (int x = 0; x < width(c); x++) {
          visit(x, y, c);
        }
      }
    }
  }
  // The greatest difference of a sample from the value.
  int farthestFrom(const std::function<double(int x, int y, guint c)>& value) const {
    double farthest = 0;
    each([&](int x, int y, guint c) {
      farthest = std::max(farthest, std::abs(at(x, y, c) - value(x, y, c)));
    });
    return static_cast<int>(std::ceil(farthest));
  }
  GstBuffer* shared() const { return gst_buffer_ref(buffer); }
  GstBuffer* copy() const { return gst_buffer_copy_deep(buffer); }
  std::string caps() const {
    g_autoptr(GstCaps) made = gst_video_info_to_caps(&info);
    g_autofree gchar* text = gst_caps_to_string(made);
    return text;
  }

 private:
  GstVideoInfo info;
  GstVideoFrame frame;
  GstBuffer* buffer;
};
using PicturePtr = std::unique_ptr<Picture>;

PicturePtr scale(const Picture& source, GstVideoFormat format, int width, int height) {
  const HarnessPtr harness(gst_harness_new("videoscale"));
  const std::string wanted =
      "video/x-raw,width=" + std::to_string(width) + ",height=" + std::to_string(height);
  gst_harness_set_caps_str(harness.get(), source.caps().c_str(), wanted.c_str());
  if (gst_harness_push(harness.get(), source.shared()) != GST_FLOW_OK) return nullptr;
  return std::make_unique<Picture>(format, width, height, gst_harness_pull(harness.get()));
}

// What the scaler tells downstream of a picture of these caps, where downstream takes those.
GstStructure* agreed(const char* offered, const char* wanted) {
  const HarnessPtr harness(gst_harness_new("videoscale"));
  gst_harness_set_sink_caps_str(harness.get(), wanted);
  gst_harness_set_src_caps_str(harness.get(), offered);
  g_autoptr(GstCaps) caps = gst_pad_get_current_caps(harness->sinkpad);
  return caps ? gst_structure_copy(gst_caps_get_structure(caps, 0)) : nullptr;
}

int intOf(const GstStructure* structure, const char* field) {
  int value = -1;
  gst_structure_get_int(structure, field, &value);
  return value;
}

// The mean of the old pixels under a new one.
double boxMean(const Picture& source, const Picture& scaled, int x, int y) {
  const int across = source.width() / scaled.width();
  const int down = source.height() / scaled.height();
  double sum = 0;
  for (int j = 0; j < down; j++) {
    for (int i = 0; i < across; i++) {
      sum += source.at(x * across + i, y * down + j);
    }
  }
  return sum / (across * down);
}

TEST(VideoScale, IsOurs) {
  g_autoptr(GstElementFactory) factory = gst_element_factory_find("videoscale");
  ASSERT_NE(factory, nullptr);
  EXPECT_STREQ(gst_plugin_feature_get_plugin_name(GST_PLUGIN_FEATURE(factory)), "tarnphoto");
}

TEST(VideoScale, KeepsAllButSizeAndAspect) {
  g_autoptr(GstStructure) caps = agreed(
      "video/x-raw,format=Y42B,width=320,height=240,framerate=0/1,colorimetry=1:4:0:0,"
      "pixel-aspect-ratio=4/3",
      "video/x-raw,width=100,height=33");
  ASSERT_NE(caps, nullptr);
  EXPECT_EQ(intOf(caps, "width"), 100);
  EXPECT_EQ(intOf(caps, "height"), 33);
  EXPECT_STREQ(gst_structure_get_string(caps, "format"), "Y42B");
  EXPECT_STREQ(gst_structure_get_string(caps, "colorimetry"), "1:4:0:0");
  EXPECT_FALSE(gst_structure_has_field(caps, "pixel-aspect-ratio"));
}

TEST(VideoScale, SizeStaysWhereItIsFree) {
  g_autoptr(GstStructure) free =
      agreed("video/x-raw,format=I420,width=321,height=40000,framerate=0/1", "video/x-raw");
  ASSERT_NE(free, nullptr);
  EXPECT_EQ(intOf(free, "width"), 321);
  EXPECT_EQ(intOf(free, "height"), 40000);
  g_autoptr(GstStructure) ranged =
      agreed("video/x-raw,format=I420,width=321,height=400,framerate=0/1",
             "video/x-raw,width=[1,100],height=[2,1000,2]");
  ASSERT_NE(ranged, nullptr);
  EXPECT_EQ(intOf(ranged, "width"), 100);
  EXPECT_EQ(intOf(ranged, "height"), 400);
}

TEST(VideoScale, NoOtherFormat) {
  g_autoptr(GstStructure) caps = agreed("video/x-raw,format=I420,width=64,height=48,framerate=0/1",
                                        "video/x-raw,format=GRAY8");
  EXPECT_EQ(caps, nullptr);
}

TEST(VideoScale, SameSizePassesTheBufferItself) {
  Picture source(GST_VIDEO_FORMAT_I420, 31, 17);
  const HarnessPtr harness(gst_harness_new("videoscale"));
  const std::string offered = source.caps() + ",pixel-aspect-ratio=(fraction)4/3";
  gst_harness_set_caps_str(harness.get(), offered.c_str(), "video/x-raw,width=31,height=17");
  g_autoptr(GstBuffer) pushed = source.shared();
  ASSERT_EQ(gst_harness_push(harness.get(), gst_buffer_ref(pushed)), GST_FLOW_OK);
  g_autoptr(GstBuffer) pulled = gst_harness_pull(harness.get());
  EXPECT_EQ(gst_buffer_peek_memory(pulled, 0), gst_buffer_peek_memory(pushed, 0));
}

TEST(VideoScale, TimesAndTagsPass) {
  const Picture source(GST_VIDEO_FORMAT_GRAY8, 40, 30);
  const HarnessPtr harness(gst_harness_new("videoscale"));
  gst_harness_set_caps_str(harness.get(), source.caps().c_str(), "video/x-raw,width=20,height=15");
  GstTagList* tags = gst_tag_list_new(GST_TAG_COMMENT, "kept", nullptr);
  ASSERT_TRUE(gst_harness_push_event(harness.get(), gst_event_new_tag(tags)));
  GstBuffer* buffer = source.copy();
  GST_BUFFER_PTS(buffer) = 7 * GST_SECOND;
  ASSERT_EQ(gst_harness_push(harness.get(), buffer), GST_FLOW_OK);
  g_autoptr(GstBuffer) scaled = gst_harness_pull(harness.get());
  EXPECT_EQ(GST_BUFFER_PTS(scaled), 7 * GST_SECOND);
  g_autoptr(GstEvent) event = gst_pad_get_sticky_event(harness->sinkpad, GST_EVENT_TAG, 0);
  ASSERT_NE(event, nullptr);
  GstTagList* arrived = nullptr;
  gst_event_parse_tag(event, &arrived);
  g_autofree gchar* comment = nullptr;
  EXPECT_TRUE(gst_tag_list_get_string(arrived, GST_TAG_COMMENT, &comment));
  EXPECT_STREQ(comment, "kept");
}

// To the edge, at sizes whose weights do not divide evenly, in each layout of the samples.
TEST(VideoScale, ConstantStaysConstant) {
  const auto constant = [](int, int, guint c) { return c == 0 ? 240.0 : 30.0 + 50 * c; };
  for (const GstVideoFormat format :
       {GST_VIDEO_FORMAT_GRAY8, GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_Y444, GST_VIDEO_FORMAT_YUY2,
        GST_VIDEO_FORMAT_NV12, GST_VIDEO_FORMAT_RGB, GST_VIDEO_FORMAT_BGRx}) {
    Picture source(format, 385, 259);
    source.paint(constant);
    for (const auto& [width, height] :
         {std::pair(192, 128), {163, 97}, {64, 48}, {1, 1}, {401, 777}}) {
      SCOPED_TRACE(std::string(gst_video_format_to_string(format)) + " " + std::to_string(width));
      const PicturePtr scaled = scale(source, format, width, height);
      ASSERT_NE(scaled, nullptr);
      EXPECT_EQ(scaled->farthestFrom(constant), 0);
    }
  }
}

TEST(VideoScale, FromOnePixelAndToOne) {
  Picture pixel(GST_VIDEO_FORMAT_GRAY8, 1, 1);
  pixel.at(0, 0) = 77;
  const PicturePtr big = scale(pixel, GST_VIDEO_FORMAT_GRAY8, 33, 5);
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(big->farthestFrom([](int, int, guint) { return 77; }), 0);
  Picture halves(GST_VIDEO_FORMAT_GRAY8, 3000, 2);
  halves.paint([](int x, int, guint) { return x < 1500 ? 0 : 200; });
  const PicturePtr small = scale(halves, GST_VIDEO_FORMAT_GRAY8, 1, 1);
  ASSERT_NE(small, nullptr);
  EXPECT_NEAR(small->at(0, 0), 100, 1);
}

// A gradient over the picture stays one over the new picture: nothing moves, nothing is cut off.
TEST(VideoScale, GradientKeepsItsPlace) {
  Picture source(GST_VIDEO_FORMAT_I420, 640, 480);
  source.paint([&](int x, int y, guint c) {
    return 20 + 110 * (x + 0.5) / source.width(c) + 100 * (y + 0.5) / source.height(c);
  });
  for (const auto& [width, height] : {std::pair(320, 240), {213, 161}, {62, 350}, {801, 611}}) {
    SCOPED_TRACE(width);
    const PicturePtr scaled = scale(source, GST_VIDEO_FORMAT_I420, width, height);
    ASSERT_NE(scaled, nullptr);
    double farthest = 0;
    scaled->each([&](int x, int y, guint c) {
      // The window is cut at the edges, which bends the gradient there.
      if (x < 3 || y < 3 || x >= scaled->width(c) - 3 || y >= scaled->height(c) - 3) return;
      const double expected =
          20 + 110 * (x + 0.5) / scaled->width(c) + 100 * (y + 0.5) / scaled->height(c);
      farthest = std::max(farthest, std::abs(scaled->at(x, y, c) - expected));
    });
    EXPECT_LE(farthest, 1.5);
  }
}

TEST(VideoScale, SpotStaysWhereItIs) {
  Picture source(GST_VIDEO_FORMAT_GRAY8, 600, 400);
  source.paint(
      [](int x, int y, guint) { return x >= 100 && x < 160 && y >= 280 && y < 340 ? 255 : 0; });
  const PicturePtr scaled = scale(source, GST_VIDEO_FORMAT_GRAY8, 171, 93);
  ASSERT_NE(scaled, nullptr);
  double mass = 0;
  double right = 0;
  double down = 0;
  scaled->each([&](int x, int y, guint) {
    mass += scaled->at(x, y);
    right += scaled->at(x, y) * (x + 0.5);
    down += scaled->at(x, y) * (y + 0.5);
  });
  EXPECT_NEAR(right / mass, 130.0 * 171 / 600, 0.1);
  EXPECT_NEAR(down / mass, 310.0 * 93 / 400, 0.1);
}

// Of two old pixels in four, stripes and chequers would come out in full contrast.
TEST(VideoScale, TooFineDetailBecomesItsMean) {
  const std::function<double(int, int, guint)> patterns[] = {
      [](int x, int, guint) { return x % 2 ? 255 : 0; },
      [](int, int y, guint) { return y % 2 ? 255 : 0; },
      [](int x, int y, guint) { return (x + y) % 2 ? 255 : 0; },
      [](int x, int, guint) { return x % 4 < 2 ? 255 : 0; },
  };
  for (const auto& pattern : patterns) {
    Picture source(GST_VIDEO_FORMAT_GRAY8, 400, 300);
    source.paint(pattern);
    for (const auto& [w, h] : {std::pair(100, 75), {97, 71}, {25, 19}}) {
      const int width = w;
      const int height = h;
      SCOPED_TRACE(width);
      const PicturePtr scaled = scale(source, GST_VIDEO_FORMAT_GRAY8, width, height);
      ASSERT_NE(scaled, nullptr);
      scaled->each([&](int x, int y, guint) {
        // Close to an edge the filter is cut, and lets a little of the pattern through.
        const bool atEdge = x < 3 || y < 3 || x >= width - 3 || y >= height - 3;
        EXPECT_NEAR(scaled->at(x, y), 127.5, atEdge ? 24 : 3) << x << "," << y;
      });
    }
  }
}

TEST(VideoScale, SmoothPictureIsTheMeanOfWhatItCovers) {
  Picture source(GST_VIDEO_FORMAT_GRAY8, 800, 600);
  source.paint(
      [](int x, int y, guint) { return 128 + 60 * std::sin(x / 40.0) * std::cos(y / 30.0); });
  const PicturePtr scaled = scale(source, GST_VIDEO_FORMAT_GRAY8, 200, 150);
  ASSERT_NE(scaled, nullptr);
  double squares = 0;
  scaled->each([&](int x, int y, guint) {
    squares += std::pow(scaled->at(x, y) - boxMean(source, *scaled, x, y), 2);
  });
  const double psnr = 10 * std::log10(255 * 255 / (squares / (200 * 150)));
  EXPECT_GE(psnr, 40);
}

// The overshoot beside a hard edge is cut off at black and white, not wrapped around.
TEST(VideoScale, HardEdgeDoesNotWrap) {
  Picture source(GST_VIDEO_FORMAT_RGB, 90, 70);
  source.paint([](int x, int y, guint) { return (x < 45) == (y < 35) ? 255 : 0; });
  const PicturePtr scaled = scale(source, GST_VIDEO_FORMAT_RGB, 271, 199);
  ASSERT_NE(scaled, nullptr);
  scaled->each([&](int x, int y, guint c) {
    if (std::abs(x - 135) < 6 || std::abs(y - 99) < 6) return;
    const bool white = (x < 135) == (y < 99);
    EXPECT_NEAR(scaled->at(x, y, c), white ? 255 : 0, 16) << x << "," << y;
  });
}

}  // namespace
