// The pipeline and its search for a size that fits, with real elements but for the encoder.
#include <gmock/gmock.h>

#include <filesystem>

#include "src/framework/vs_ctx.h"
#include "src/image/jpeg_transcode_gstreamer.h"
#include "src/service/transcode_server.h"
#include "tests/image/fake_encoder.h"
#include "tests/support/fake_vela.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using fake_vela::Request;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kRun[] = "virtual LaunchResult JpegTranscodeGstreamer::run()";

class JpegSearchTest : public testing::Test {
 protected:
  void SetUp() override {
    // A plug-in that is loaded later would bring back the elements that the tests take away.
    for (const char* name : {"coreelements", "jpeg", "videocrop", "tarnphoto"}) {
      GstPlugin* plugin = gst_plugin_load_by_name(name);
      ASSERT_NE(plugin, nullptr) << name;
      gst_object_unref(plugin);
    }
    gFakeEncoder = {};
  }

  // Sends a resizeImage request for the picture to the handler.
  void resize(int targetSize) {
    const Request request(R"({"inFile":")" + in + R"(","outFile":")" + out + R"(","size":)" +
                          std::to_string(targetSize) + "}");
    EXPECT_TRUE(TranscodeServer::resizeImage(fake_vela::handle(), request.message(), nullptr));
    EXPECT_EQ(TranscodeServer::taskCount, 0);
    EXPECT_EQ(request.references(), 0);
    EXPECT_EQ(request.replies().size(), 1u);
    reply = request.replies().at(0);
  }

  // A 1000 x 750 picture whose file is so small that its planned size is its own.
  void makePicture() {
    JpegRecipe recipe;
    recipe.width = 1000;
    recipe.height = 750;
    recipe.jfif = false;
    recipe.quality = 1;
    ASSERT_TRUE(writeBytes(in, makeJpeg(recipe)));
    ASSERT_LT(std::filesystem::file_size(in), 90000u);
  }

  const TempDir dir;
  const std::string in = dir / "in.jpg";
  const std::string out = dir / "out.jpg";
  std::string reply;
};

std::string success(int width, int height, int size) {
  return R"({"returnValue":true,"xSize":)" + std::to_string(width) + R"(,"ySize":)" +
         std::to_string(height) + R"(,"ImageSize":)" + std::to_string(size) + "}";
}

TEST_F(JpegSearchTest, FirstEncodeThatFitsIsTheLast) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 100000; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 100000));
  EXPECT_THAT(gFakeEncoder.attempts, ElementsAre(EncodeAttempt{1008, 752, 85}));
  EXPECT_EQ(std::filesystem::file_size(out), 100000u);
  EXPECT_THAT(log.at(G_LOG_LEVEL_MESSAGE), Contains("output size is 100000, target 100000"));
}

TEST_F(JpegSearchTest, OneAndAHalfTimesTheBudgetReducesTheQuality) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.quality == 85 ? 150000 : 99999; };
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 99999));
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{1008, 752, 56}));
}

TEST_F(JpegSearchTest, TwiceTheBudgetHalvesTheSides) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.width > 600 ? 200000 : 1000; };
  resize(100000);
  EXPECT_EQ(reply, success(512, 384, 1000));
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{512, 384, 85}));
}

// For a budget of 100000: 180000 bytes ask for quality 47, below 50; a level lower 120000 ask
// for 70.
int fitsAtTheSecondLevelOfReducedQuality(const EncodeAttempt& attempt) {
  if (attempt.width > 600) return 180000;
  return attempt.quality == 85 ? 120000 : 95000;
}

TEST_F(JpegSearchTest, EachLevelStartsAtTheDefaultQuality) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = fitsAtTheSecondLevelOfReducedQuality;
  resize(100000);
  EXPECT_EQ(reply, success(512, 384, 95000));
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{512, 384, 85},
                          EncodeAttempt{512, 384, 70}));
}

// The caps filter still has the level before when a level's quality is set.
TEST_F(JpegSearchTest, SetsTheQualityBeforeTheDimensions) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = fitsAtTheSecondLevelOfReducedQuality;
  resize(100000);
  EXPECT_THAT(gFakeEncoder.qualitySettings,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{1008, 752, 85},
                          EncodeAttempt{512, 384, 70}));
}

TEST_F(JpegSearchTest, GivesUpAfterFourLevelsOfTwoAttempts) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.quality == 85 ? 102000 : 100001; };
  resize(100000);
  EXPECT_EQ(reply, R"({"returnValue":false})");
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{1008, 752, 83},
                          EncodeAttempt{512, 384, 85}, EncodeAttempt{512, 384, 83},
                          EncodeAttempt{256, 192, 85}, EncodeAttempt{256, 192, 83},
                          EncodeAttempt{128, 96, 85}, EncodeAttempt{128, 96, 83}));
  EXPECT_EQ(std::filesystem::file_size(out), 100001u);
}

TEST_F(JpegSearchTest, QualityFiftyIsTriedAndFortyNineIsNot) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 170000; };
  resize(100000);
  EXPECT_THAT(gFakeEncoder.attempts, Contains(EncodeAttempt{1008, 752, 50}));
  gFakeEncoder.attempts.clear();
  resize(99999);
  EXPECT_EQ(gFakeEncoder.attempts.size(), 4u);
}

TEST_F(JpegSearchTest, QualityIsReckonedInWrappedIntegers) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt& a) { return a.width > 600 ? 31000000 : 100; };
  // 85 x 30000000 does not fit 32 bits: the product is negative and nothing is tried at it.
  resize(30000000);
  EXPECT_THAT(gFakeEncoder.attempts,
              ElementsAre(EncodeAttempt{1008, 752, 85}, EncodeAttempt{512, 384, 85}));
}

TEST_F(JpegSearchTest, BudgetsBelowOneFailAtEveryLevel) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 100; };
  for (const int size : {0, -1, -100}) {
    gFakeEncoder.attempts.clear();
    resize(size);
    EXPECT_EQ(reply, R"({"returnValue":false})");
    EXPECT_EQ(gFakeEncoder.attempts.size(), 4u);
  }
}

TEST_F(JpegSearchTest, EncoderWithoutQualityIsTakenAsEightyFive) {
  const FakeEncoderFactory encoder(false);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 100; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 100));
  EXPECT_THAT(gFakeEncoder.attempts, ElementsAre(EncodeAttempt{1008, 752, -1}));
  const auto lines = log.at(G_LOG_LEVEL_MESSAGE);
  EXPECT_THAT(lines, Not(Contains(HasSubstr("default quality"))));
  EXPECT_THAT(lines, Contains("trying res 1008x752, quality 85"));
}

TEST_F(JpegSearchTest, FailedEncodeIsJudgedByTheFileItLeaves) {
  const FakeEncoderFactory encoder(true);
  makePicture();
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 0; };
  const LogCapture log;
  resize(100000);
  EXPECT_EQ(reply, success(1008, 752, 0));
  const auto lines = log.at(G_LOG_LEVEL_MESSAGE);
  EXPECT_THAT(lines, Contains("Error: told to fail\n"));
  EXPECT_THAT(lines, Contains(StartsWith("Debug details: ")));

  resize(-5);
  EXPECT_EQ(reply, R"({"returnValue":false})");
}

TEST_F(JpegSearchTest, LogsEachStepInOrder) {
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

// Takes a clip straight into the pipeline, past a planning that never lets one through.
class ClipTask : public JpegTranscodeGstreamer {
 public:
  ClipTask(VSCtx* context, const std::string& from, const std::string& to)
      : JpegTranscodeGstreamer(context, JpegScale) {
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

TEST_F(JpegSearchTest, ClipCutsTheScaledPicture) {
  const FakeEncoderFactory encoder(true);
  JpegRecipe recipe;
  recipe.jfif = false;
  ASSERT_TRUE(writeBytes(in, makeJpeg(recipe)));
  gFakeEncoder.sizeBytes = [](const EncodeAttempt&) { return 500; };
  const Request request("{}");
  {
    ClipTask task(new VSCtx(fake_vela::handle(), request.message()), in, out);
    EXPECT_EQ(task.run(), LaunchDone);
  }
  EXPECT_THAT(gFakeEncoder.attempts, ElementsAre(EncodeAttempt{32, 16, 85}));
  EXPECT_THAT(request.replies(), ElementsAre(success(64, 48, 500)));
}

TEST_F(JpegSearchTest, MissingElementEndsTheProcess) {
  makePicture();
  for (const char* factory : {"filesrc", "videoscale", "videocrop", "jpegenc", "filesink",
                              "capsfilter", "metadatademux", "metadatamux"}) {
    EXPECT_DEATH(
        {
          GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), factory);
          if (feature != nullptr) gst_registry_remove_feature(gst_registry_get(), feature);
          resize(100000);
        },
        "Unable to instantiate one or more pipeline element")
        << factory;
  }
}

}  // namespace
