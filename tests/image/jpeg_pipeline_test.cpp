// The pipeline as it is put together, with real elements but for the encoder, and what ends it.
#include <algorithm>

#include "src/framework/vs_ctx.h"
#include "src/image/jpeg_transcode_gstreamer.h"
#include "tests/image/resize_image_test.h"
#include "tests/support/log_capture.h"

namespace {

using fake_vela::Request;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using JpegPipelineTest = ResizeImageTest;

TEST_F(JpegPipelineTest, LogsEachStepInOrder) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 1234; };
  const LogCapture log;
  resize(100000);

  std::vector<std::string> lines;
  for (const auto& line : log.at(G_LOG_LEVEL_MESSAGE)) {
    if (line.find("bus_call") == std::string::npos) {
      lines.push_back(line.substr(0, line.find("0x")));
    }
  }
  EXPECT_THAT(
      lines,
      ElementsAre(std::string("+ ") + kRun + "\n", "made pipeline element ", "made src element ",
                  "made decoder element ", "made scaler element ", "made cropper element ",
                  "made encoder element ", "made sink element ", "made metadatamux element ",
                  "made metadatademux element ", "made caps element ", "caps set on caps element ",
                  "made pipeline element\n", "Linking pipeline completed \n", "loop ", "bus ",
                  "encoder default quality is 85\n", "trying res 1008x752, quality 85",
                  "output size is 1234, target 100000", "g_main_loop exitted\n",
                  std::string("- ") + kRun + " returning 3\n"));
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE),
              Contains("+ static gboolean JpegTranscodeGstreamer::bus_call(GstBus*, GstMessage*, "
                       "void*) MESSAGE TYPE eos\n"));
}

// One property as text; "" where there is no such element.
std::string setting(GstBin* bin, const char* name, const char* property) {
  GstElement* element = gst_bin_get_by_name(bin, name);
  if (element == nullptr) return "";
  GValue value = G_VALUE_INIT;
  g_object_get_property(G_OBJECT(element), property, &value);
  gchar* text = gst_value_serialize(&value);
  std::string result = text;
  g_free(text);
  g_value_unset(&value);
  gst_object_unref(element);
  return result;
}

// As the log tells addresses; "" where there is no such element.
std::string addressOf(GstBin* bin, const char* name) {
  GstElement* element = gst_bin_get_by_name(bin, name);
  if (element == nullptr) return "";
  gst_object_unref(element);
  char address[32];
  snprintf(address, sizeof address, "%p", static_cast<void*>(element));
  return address;
}

TEST_F(JpegPipelineTest, ElementsHaveTheirNamesAndAreLogged) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  const std::pair<const char*, const char*> elements[] = {
      {"src", "src"},       {"decoder", "decoder"},
      {"scaler", "scaler"}, {"encoder", "encoder"},
      {"sink", "sink"},     {"metamux", "metadatamux"},
      {"dimens", "caps"},   {"metademux", "metadatademux"}};
  std::vector<std::string> expected;
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 500; };
  gFakeEncoder.onEncode = [&](GstBin* bin) {
    for (const auto& [name, logged] : elements) {
      expected.push_back(std::string("made ") + logged + " element " + addressOf(bin, name));
    }
  };
  const LogCapture log;
  resize(100000);
  ASSERT_EQ(expected.size(), std::size(elements));
  for (const std::string& line : expected) {
    EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), Contains(StartsWith(line)));
    EXPECT_THAT(line, HasSubstr("0x"));
  }
}

TEST_F(JpegPipelineTest, ElementsHaveTheirSettings) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 500; };
  gFakeEncoder.onEncode = [this](GstBin* bin) {
    EXPECT_EQ(setting(bin, "src", "blocksize"), "1048576");
    EXPECT_EQ(setting(bin, "src", "location"), in);
    EXPECT_EQ(setting(bin, "sink", "location"), out);
    EXPECT_EQ(setting(bin, "metademux", "parse-only"), "true");
    EXPECT_EQ(setting(bin, "metamux", "exif"), "true");
  };
  resize(100000);
  EXPECT_EQ(gFakeEncoder.attempts.size(), 1u);
}

// Takes a clip straight into the pipeline, past a planning that never lets one through.
class ClipTask : public JpegTranscodeGstreamer {
 public:
  ClipTask(VSCtx* context, const std::string& from, const std::string& to,
           JpegTranscodeCommand jpegCommand = JpegScale)
      : JpegTranscodeGstreamer(context, jpegCommand) {
    inFile = from;
    outFile = to;
    xTop = 8;
    yTop = 4;
    xSize = 32;
    ySize = 16;
    imageWidth = 64;
    imageHeight = 48;
    outWidth = 64;
    outHeight = 48;
  }
};

TEST_F(JpegPipelineTest, ClipCutsTheScaledPicture) {
  const FakeEncoderFactory encoder(true);
  JpegRecipe recipe;
  recipe.jfif = false;
  ASSERT_TRUE(writeBytes(in, makeJpeg(recipe)));
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 500; };
  gFakeEncoder.onEncode = [](GstBin* bin) {
    EXPECT_EQ(setting(bin, "cropper", "left"), "8");
    EXPECT_EQ(setting(bin, "cropper", "right"), "24");
    EXPECT_EQ(setting(bin, "cropper", "top"), "4");
    EXPECT_EQ(setting(bin, "cropper", "bottom"), "28");
  };
  const Request request("{}");
  {
    ClipTask task(new VSCtx(fake_vela::handle(), request.message()), in, out);
    EXPECT_EQ(task.run(), LaunchDone);
  }
  EXPECT_THAT(gFakeEncoder.attempts, ElementsAre(EncodeAttempt{32, 16, 85}));
  EXPECT_THAT(request.replies(), ElementsAre(success(64, 48, 500)));
}

// The rest is for death tests: what is done to the registry goes with their process.
void takeAway(const char* factory) {
  GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), factory);
  if (feature != nullptr) gst_registry_remove_feature(gst_registry_get(), feature);
}

// Has the factory make elements that lead nowhere.
void makeADeadEnd(const char* factory) {
  takeAway(factory);
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  gst_element_register(nullptr, factory, GST_RANK_NONE, G_OBJECT_TYPE(sink));
}

// The line that tells which of the elements there are, with these missing.
std::string elementLine(const std::vector<std::string>& missing) {
  std::string line = "Unable to instantiate one or more pipeline element";
  for (const char* printed :
       {"filesrc", "jpegdec", "videoscale", "videocrop", "jpegenc", "filesink", "capsfilter"}) {
    const bool isMissing = std::find(missing.begin(), missing.end(), printed) != missing.end();
    line += isMissing ? " \\(nil\\)" : " 0x[0-9a-f]+";
  }
  return line + "\n";
}

TEST_F(JpegPipelineTest, MissingElementEndsTheProcess) {
  makePicture();
  for (const char* factory : {"filesrc", "videoscale", "videocrop", "jpegenc", "filesink",
                              "capsfilter", "metadatademux", "metadatamux"}) {
    EXPECT_DEATH(
        {
          takeAway(factory);
          resize(100000);
        },
        elementLine({factory}))
        << factory;
  }
  EXPECT_DEATH(
      {
        takeAway("filesrc");
        takeAway("jpegdec");
        resize(100000);
      },
      elementLine({"filesrc", "jpegdec"}));
}

// It is not looked for: without it the elements behind it do not get into the pipeline.
TEST_F(JpegPipelineTest, MissingDecoderEndsTheProcessLater) {
  makePicture();
  EXPECT_DEATH(
      {
        takeAway("jpegdec");
        resize(100000);
      },
      "cannot remove cropper from pipeline\n");
}

TEST_F(JpegPipelineTest, NoPipelineEndsTheProcess) {
  makePicture();
  EXPECT_DEATH(
      {
        takeAway("pipeline");
        resize(100000);
      },
      "Unable to create pipeline\n");
}

TEST_F(JpegPipelineTest, ElementsThatDoNotLinkEndTheProcess) {
  makePicture();
  EXPECT_DEATH(
      {
        makeADeadEnd("videoscale");
        resize(100000);
      },
      "Unable to link jpeg scale  pipeline\n");
  EXPECT_DEATH(
      {
        makeADeadEnd("videocrop");
        const Request request("{}");
        ClipTask(new VSCtx(fake_vela::handle(), request.message()), in, out).run();
      },
      "Unable to link jpeg crop pipeline\n");
}

TEST_F(JpegPipelineTest, UnknownCommandEndsTheProcess) {
  const Request request("{}");
  ClipTask task(new VSCtx(fake_vela::handle(), request.message()), in, out,
                static_cast<JpegTranscodeCommand>(3));
  EXPECT_DEATH(task.run(), "unknown transcode type \n");
}

}  // namespace