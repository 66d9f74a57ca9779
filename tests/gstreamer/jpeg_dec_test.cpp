// The decoder element: what it agrees to, the colours it makes, what it refuses.
#include <gmock/gmock.h>
#include <gst/check/gstharness.h>
#include <gst/video/video.h>

#include <cmath>
#include <memory>

#include "tests/support/jpeg_media.h"

namespace {

using testing::HasSubstr;

struct HarnessTeardown {
  void operator()(GstHarness* harness) const { gst_harness_teardown(harness); }
};
using HarnessPtr = std::unique_ptr<GstHarness, HarnessTeardown>;

// The element alone, between a source of JPEG data and what takes those caps.
class Decoding {
 public:
  explicit Decoding(const std::string& taken = "video/x-raw")
      : Decoding(gst_harness_new("jpegdec"), taken) {}
  // The element with others behind it.
  Decoding(GstHarness* elements, const std::string& taken) : harness(elements) {
    bus = gst_bus_new();
    gst_element_set_bus(harness->element, bus);
    gst_harness_set_sink_caps_str(harness.get(), taken.c_str());
    gst_harness_set_src_caps_str(harness.get(), "image/jpeg");
  }
  ~Decoding() {
    gst_element_set_bus(harness->element, nullptr);
    gst_object_unref(bus);
    gst_clear_buffer(&picture);
  }
  Decoding(const Decoding&) = delete;
  Decoding& operator=(const Decoding&) = delete;

  GstFlowReturn push(const Bytes& bytes) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, bytes.size(), nullptr);
    gst_buffer_fill(buffer, 0, bytes.data(), bytes.size());
    return gst_harness_push(harness.get(), buffer);
  }
  // The whole stream; whether a picture came out.
  bool decode(const Bytes& jpeg) {
    push(jpeg);
    gst_harness_push_event(harness.get(), gst_event_new_eos());
    picture = gst_harness_try_pull(harness.get());
    return picture != nullptr;
  }
  // Of the picture that came out.
  GstVideoInfo layout() const {
    GstVideoInfo info;
    g_autoptr(GstCaps) caps = gst_pad_get_current_caps(harness->sinkpad);
    EXPECT_TRUE(caps != nullptr && gst_video_info_from_caps(&info, caps));
    return info;
  }
  GstVideoFormat format() const { return layout().finfo->format; }
  int width() const { return layout().width; }
  int height() const { return layout().height; }
  Bytes samples() const {
    Bytes all(gst_buffer_get_size(picture));
    gst_buffer_extract(picture, 0, all.data(), all.size());
    return all;
  }
  // What the first ERROR message says, with its detail; empty: there is none.
  std::string error() const {
    g_autoptr(GstMessage) message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    if (message == nullptr) return "";
    g_autoptr(GError) told = nullptr;
    g_autofree gchar* detail = nullptr;
    gst_message_parse_error(message, &told, &detail);
    return std::string(told->message) + " " + (detail ? detail : "");
  }
  GstHarness* operator->() const { return harness.get(); }
  GstHarness* get() const { return harness.get(); }

 private:
  HarnessPtr harness;
  GstBus* bus;
  GstBuffer* picture = nullptr;
};

// The red, green and blue of each pixel of an I420 or GRAY8 picture.
Bytes pixelsOf(const Decoding& decoding) {
  const GstVideoInfo info = decoding.layout();
  const Bytes samples = decoding.samples();
  const bool isGray = GST_VIDEO_INFO_FORMAT(&info) == GST_VIDEO_FORMAT_GRAY8;
  const auto sample = [&](int x, int y, guint c) {
    const int shift = c == 0 ? 0 : 1;
    return samples[GST_VIDEO_INFO_COMP_OFFSET(&info, c) +
                   static_cast<size_t>((y >> shift) * GST_VIDEO_INFO_COMP_STRIDE(&info, c) +
                                       (x >> shift))];
  };
  Bytes pixels;
  for (int y = 0; y < GST_VIDEO_INFO_HEIGHT(&info); ++y) {
    for (int x = 0; x < GST_VIDEO_INFO_WIDTH(&info); ++x) {
      const double luma = sample(x, y, 0);
      const double cb = isGray ? 0 : sample(x, y, 1) - 128.0;
      const double cr = isGray ? 0 : sample(x, y, 2) - 128.0;
      for (const double value :
           {luma + 1.402 * cr, luma - 0.344136 * cb - 0.714136 * cr, luma + 1.772 * cb}) {
        pixels.push_back(static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0))));
      }
    }
  }
  return pixels;
}

double psnr(const Bytes& one, const Bytes& other) {
  if (one.size() != other.size() || one.empty()) return 0;
  double squares = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    squares += std::pow(one[i] - other[i], 2);
  }
  return 10 * std::log10(255 * 255 / (squares / static_cast<double>(one.size()) + 1e-9));
}

struct Kind {
  const char* name;
  JpegRecipe recipe;
};

std::vector<Kind> kinds() {
  const auto of = [](Subsampling subsampling, Colours colours = Colours::YCbCr) {
    return JpegRecipe{
        .width = 163, .height = 117, .quality = 97, .subsampling = subsampling, .colours = colours};
  };
  std::vector<Kind> all = {
      {"Gray", of(Subsampling::Gray)},
      {"S444", of(Subsampling::S444)},
      {"S422", of(Subsampling::S422)},
      {"S420", of(Subsampling::S420)},
      {"S440", of(Subsampling::S440)},
      {"S411", of(Subsampling::S411)},
      {"S410", of(Subsampling::S410)},
      {"Rgb", of(Subsampling::S444, Colours::Rgb)},
      {"CmykInverted", of(Subsampling::S444, Colours::CmykInverted)},
      {"CmykPlain", of(Subsampling::S444, Colours::CmykPlain)},
      {"YcckInverted", of(Subsampling::S444, Colours::YcckInverted)},
      {"Ycck420", of(Subsampling::S420, Colours::YcckInverted)},
  };
  const size_t count = all.size();
  for (size_t i = 0; i < count; ++i) {
    static std::vector<std::string> names(count);
    names[i] = std::string(all[i].name) + "Progressive";
    all.push_back({names[i].c_str(), all[i].recipe});
    all.back().recipe.progressive = true;
  }
  return all;
}

class JpegDecKinds : public testing::TestWithParam<Kind> {};

INSTANTIATE_TEST_SUITE_P(All, JpegDecKinds, testing::ValuesIn(kinds()),
                         [](const auto& kind) { return kind.param.name; });

TEST_P(JpegDecKinds, ColoursAreTheSource) {
  const JpegRecipe& recipe = GetParam().recipe;
  const bool isGray = recipe.subsampling == Subsampling::Gray;
  Decoding decoding;
  ASSERT_TRUE(decoding.decode(makeJpeg(recipe))) << decoding.error();
  EXPECT_EQ(decoding.format() == GST_VIDEO_FORMAT_GRAY8, isGray);
  EXPECT_GE(psnr(pixelsOf(decoding), gradientPixels(163, 117, isGray)), 36);
}

// Exactly where it was: an eighth of a pixel's shift of these gradients is seen here.
TEST_P(JpegDecKinds, ShrunkColoursAreTheSourceToo) {
  const JpegRecipe& recipe = GetParam().recipe;
  const bool isGray = recipe.subsampling == Subsampling::Gray;
  JpegRecipe large = recipe;
  large.width = 501;
  large.height = 351;
  const Bytes jpeg = makeJpeg(large);
  for (const auto& [width, height] : {std::pair(400, 280), {125, 88}, {62, 43}}) {
    Decoding decoding(
        ("video/x-raw,width=" + std::to_string(width) + ",height=" + std::to_string(height))
            .c_str());
    ASSERT_TRUE(decoding.decode(jpeg)) << decoding.error();
    EXPECT_GE(psnr(pixelsOf(decoding), gradientPixels(width, height, isGray)), 36) << width;
  }
}

// Detail finer than the new pixels becomes its mean, as where every pixel of the photo is computed.
TEST(JpegDec, FineDetailShrinksAsIfAllOfItWereDecoded) {
  const Bytes jpeg = makeJpeg(
      {.width = 1024, .height = 768, .subsampling = Subsampling::Gray, .content = Content::Noise});
  for (const auto& [divisor, least] : {std::pair(2, 60.0), {4, 33.0}, {8, 43.0}, {16, 48.0}}) {
    const int width = 1024 / divisor;
    const int height = 768 / divisor;
    const std::string small =
        "video/x-raw,width=" + std::to_string(width) + ",height=" + std::to_string(height);
    Decoding ours(small);
    Decoding whole(
        gst_harness_new_parse("jpegdec ! video/x-raw,width=1024,height=768 ! videoscale"), small);
    ASSERT_TRUE(ours.decode(jpeg) && whole.decode(jpeg));
    EXPECT_GE(psnr(ours.samples(), whole.samples()), least) << divisor;
  }
}

TEST(JpegDec, MakesTheSizeThatComesFirstDownstream) {
  Decoding decoding("video/x-raw,width=100,height=60;video/x-raw");
  ASSERT_TRUE(decoding.decode(makeJpeg({.width = 320, .height = 240})));
  EXPECT_EQ(decoding.width(), 100);
  EXPECT_EQ(decoding.height(), 60);
}

TEST(JpegDec, KeepsItsSizeWhereDownstreamTakesAny) {
  Decoding decoding("video/x-raw,width=[1,1000],height=[1,1000]");
  ASSERT_TRUE(decoding.decode(makeJpeg({.width = 321, .height = 239})));
  EXPECT_EQ(decoding.width(), 321);
  EXPECT_EQ(decoding.height(), 239);
}

TEST(JpegDec, TellsTheColoursOfJfif) {
  Decoding decoding;
  ASSERT_TRUE(decoding.decode(makeJpeg({})));
  const GstVideoInfo info = decoding.layout();
  EXPECT_EQ(info.colorimetry.range, GST_VIDEO_COLOR_RANGE_0_255);
  EXPECT_EQ(info.colorimetry.matrix, GST_VIDEO_COLOR_MATRIX_BT601);
  EXPECT_EQ(info.chroma_site, GST_VIDEO_CHROMA_SITE_JPEG);
}

TEST(JpegDec, GivesAGrayPictureColoursWhereGrayIsNotTaken) {
  Decoding decoding("video/x-raw,format=I420");
  ASSERT_TRUE(decoding.decode(makeJpeg({.subsampling = Subsampling::Gray})));
  const Bytes samples = decoding.samples();
  EXPECT_EQ(decoding.format(), GST_VIDEO_FORMAT_I420);
  EXPECT_EQ(std::count(samples.end() - 64 * 48 / 2, samples.end(), 128), 64 * 48 / 2);
}

TEST(JpegDec, RefusesWhereNobodyTakesThePicture) {
  Decoding decoding("video/x-raw,format=BGR");
  EXPECT_FALSE(decoding.decode(makeJpeg({})));
  EXPECT_THAT(decoding.error(), HasSubstr("Nobody takes"));
}

TEST(JpegDec, EndsBehindThePicture) {
  Decoding decoding;
  const Bytes jpeg = makeJpeg({});
  EXPECT_EQ(decoding.push(Bytes(jpeg.begin(), jpeg.begin() + 400)), GST_FLOW_OK);
  EXPECT_EQ(decoding.push(Bytes(jpeg.begin() + 400, jpeg.end())), GST_FLOW_EOS);
  EXPECT_EQ(decoding.push(jpeg), GST_FLOW_EOS);
  EXPECT_EQ(gst_harness_buffers_received(decoding.get()), 1u);
}

TEST(JpegDec, TagsComeBehindTheCapsThatTheyBelongTo) {
  Decoding decoding;
  gst_harness_push_event(decoding.get(),
                         gst_event_new_tag(gst_tag_list_new(GST_TAG_TITLE, "title", nullptr)));
  ASSERT_TRUE(decoding.decode(makeJpeg({})));
  std::vector<GstEventType> order;
  while (GstEvent* event = gst_harness_try_pull_event(decoding.get())) {
    order.push_back(GST_EVENT_TYPE(event));
    gst_event_unref(event);
  }
  EXPECT_THAT(order, testing::ElementsAre(GST_EVENT_STREAM_START, GST_EVENT_CAPS, GST_EVENT_SEGMENT,
                                          GST_EVENT_TAG, GST_EVENT_EOS));
}

TEST(JpegDec, SaysWhatItRefuses) {
  const auto saidOf = [](const Bytes& jpeg, const char* taken = "video/x-raw") {
    Decoding decoding(taken);
    EXPECT_FALSE(decoding.decode(jpeg));
    return decoding.error();
  };
  const Bytes whole = makeJpeg({.width = 200, .height = 200, .content = Content::Noise});
  EXPECT_THAT(saidOf(Bytes(whole.begin(), whole.end() - 3000)), HasSubstr("breaks off"));
  EXPECT_THAT(saidOf(Bytes(whole.begin(), whole.begin() + 100)), HasSubstr("damaged"));
  Bytes deep = whole;
  const Bytes frame = {0xFF, 0xC0};
  std::search(deep.begin(), deep.end(), frame.begin(), frame.end())[4] = 12;
  EXPECT_THAT(saidOf(deep), HasSubstr("cannot be decoded: Unsupported JPEG data precision 12"));
  EXPECT_THAT(saidOf(makeJpeg({.width = 65489, .height = 8})), HasSubstr("65488"));
  EXPECT_THAT(saidOf(whole, "video/x-raw,width=65489,height=16"), HasSubstr("65488"));
  EXPECT_THAT(saidOf(whole, "video/x-raw,width=20000,height=10000"), HasSubstr("256 can be had"));
  EXPECT_THAT(saidOf(whole, "video/x-raw,width=60000,height=60000"), HasSubstr("Nobody takes"));
}

TEST(JpegDec, TakesTheLongestSideThereMayBe) {
  Decoding decoding("video/x-raw,width=640,height=16");
  EXPECT_TRUE(decoding.decode(makeJpeg({.width = 65488, .height = 8}))) << decoding.error();
}

TEST(JpegDec, AnEndWithoutDataIsPassedOn) {
  Decoding decoding;
  EXPECT_TRUE(gst_harness_push_event(decoding.get(), gst_event_new_eos()));
  EXPECT_EQ(decoding.error(), "");
}

TEST(JpegDec, AFlushBeginsAnew) {
  Decoding decoding;
  const Bytes jpeg = makeJpeg({});
  ASSERT_EQ(decoding.push(Bytes(jpeg.begin(), jpeg.begin() + 400)), GST_FLOW_OK);
  gst_harness_push_event(decoding.get(), gst_event_new_flush_start());
  gst_harness_push_event(decoding.get(), gst_event_new_flush_stop(TRUE));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_BYTES);
  gst_harness_push_event(decoding.get(), gst_event_new_segment(&segment));
  EXPECT_EQ(decoding.push(jpeg), GST_FLOW_EOS);
}

}  // namespace
