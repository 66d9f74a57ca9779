// Parameters, planning and the replies of failures, without a pipeline.
#include "src/image/jpeg_transcode.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "src/service/transcode_server.h"
#include "tests/support/failure_reply.h"
#include "tests/support/fake_vela.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using fake_vela::Request;
using testing::ElementsAre;

// Stops where the pipeline would begin, and replies as it would in the end.
class PlannedJpeg : public JpegTranscode {
 public:
  using JpegTranscode::JpegTranscode;
  LaunchResult run() override {
    outputStream.reset();
    planned = {outWidth, outHeight};
    replySuccess();
    return LaunchDone;
  }
  std::optional<std::pair<int, int>> planned;
};

class JpegTranscodeTest : public testing::Test {
 protected:
  // A picture of that size, filled up to `bytes` behind its end, where nobody looks.
  std::string picture(int width, int height, size_t bytes = 0) {
    JpegRecipe recipe;
    recipe.width = width;
    recipe.height = height;
    Bytes jpeg = makeJpeg(recipe);
    if (bytes != 0) {
      EXPECT_LE(jpeg.size(), bytes);
      jpeg.resize(bytes);
    }
    EXPECT_TRUE(writeBytes(dir / "in.jpg", jpeg));
    return dir / "in.jpg";
  }

  // The request's members besides the two files.
  std::string payload(const std::string& members) {
    return R"({"inFile":")" + dir.path() + R"(/in.jpg","outFile":")" + dir.path() +
           R"(/out/small.jpg")" + (members.empty() ? "" : "," + members) + "}";
  }

  // Runs the request up to the pipeline; returns the planned size, or nothing after a failure.
  std::optional<std::pair<int, int>> plan(JpegTranscodeCommand command,
                                          const std::string& members) {
    const Request request(payload(members));
    PlannedJpeg task(new VSCtx(fake_vela::handle(), request.message()), command);
    task.launch();
    EXPECT_EQ(request.replies().size(), 1u);
    reply = request.replies().at(0);
    return task.planned;
  }

  const TempDir dir;
  std::string reply;
};

TEST_F(JpegTranscodeTest, RoundsUpToMultiplesOfSixteen) {
  const std::pair<int, int> cases[] = {{1000, 1008}, {750, 752}, {16, 16},      {0, 0},
                                       {1, 16},      {15, 16},   {17, 32},      {-5, 16},
                                       {-20, 0},     {-16, -16}, {65535, 65536}};
  for (const auto& [value, expected] : cases) {
    int width = value;
    int height = 32;
    JpegTranscode::FixFrameSizeMod16(&width, &height);
    EXPECT_EQ(width, expected) << value;
    EXPECT_EQ(height, 32);
    JpegTranscode::FixFrameSizeMod16(&height, &width);
    EXPECT_EQ(width, expected) << value;
  }
}

TEST_F(JpegTranscodeTest, KeepsTheSizeOfAPictureThatFits) {
  picture(1000, 750);
  EXPECT_EQ(plan(JpegResize, R"("size":100000000)"), std::make_pair(1008, 752));
  EXPECT_EQ(reply, R"({"returnValue":true,"xSize":1008,"ySize":752,"ImageSize":0})");
}

TEST_F(JpegTranscodeTest, DividesByTheRootOfTheSizeRatio) {
  picture(1600, 960, 100000);
  const std::pair<int, int> cases[] = {{25642, 1},  // ratio 3.9
                                       {25000, 2},  // 4
                                       {6290, 2},   // 15.9
                                       {6250, 4},   // 16
                                       {2778, 4},   // just below 36
                                       {2777, 6},   // just above
                                       {100000, 1}, {100001, 1}, {99999, 1},
                                       {0, 1},      {-1, 1},     {-2147483647, 1}};
  for (const auto& [size, divisor] : cases) {
    int width = 1600 / divisor;
    int height = 960 / divisor;
    JpegTranscode::FixFrameSizeMod16(&width, &height);
    EXPECT_EQ(plan(JpegResize, "\"size\":" + std::to_string(size)), std::make_pair(width, height))
        << size;
  }
}

// The size counts by its last 32 bits: 5 GiB are as 1 GiB, 3 GiB as less than nothing.
TEST_F(JpegTranscodeTest, InputOfMoreThan2GiBIsPlannedAlikeOnEveryMachine) {
  constexpr uintmax_t kGiB = 1 << 30;
  const std::string in = picture(1600, 960);
  fs::resize_file(in, 5 * kGiB);
  EXPECT_EQ(plan(JpegResize, R"("size":268435456)"), std::make_pair(800, 480));
  EXPECT_EQ(plan(JpegResize, R"("size":268435457)"), std::make_pair(1600, 960));
  fs::resize_file(in, 3 * kGiB);
  EXPECT_EQ(plan(JpegResize, R"("size":1000)"), std::make_pair(1600, 960));
}

TEST_F(JpegTranscodeTest, RefusesABudgetThatLeavesNoPixel) {
  picture(200, 150, 10000000);
  EXPECT_EQ(plan(JpegResize, R"("size":1)"), std::nullopt);
  EXPECT_EQ(reply, failure(R"(Scale factor is too small\n)"));
}

TEST_F(JpegTranscodeTest, ReportsTheParameterItCannotParse) {
  picture(64, 48);
  for (const char* members : {"", R"("size":"3")", R"("size":1.5)", R"("size":1e12)",
                              R"("size":true)", R"("size":null)"}) {
    EXPECT_EQ(plan(JpegResize, members), std::nullopt);
    EXPECT_EQ(reply, failure("Could not parse param resize")) << members;
  }

  std::string members;
  for (const char* key : {"xTop", "yTop", "xSize", "ySize", "scale"}) {
    EXPECT_EQ(plan(JpegScale, members), std::nullopt);
    EXPECT_EQ(reply, failure(std::string("Could not parse param ") + key));
    if (!members.empty()) members += ",";
    members += std::string("\"") + key + "\":16";
  }
  EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST_F(JpegTranscodeTest, ChecksScaleThenWidthThenHeight) {
  picture(64, 48);
  const auto scaled = [](int xSize, int ySize, int scale) {
    return R"("xTop":0,"yTop":0,"xSize":)" + std::to_string(xSize) + R"(,"ySize":)" +
           std::to_string(ySize) + R"(,"scale":)" + std::to_string(scale);
  };
  for (const int scale : {0, 101, -5, INT32_MIN, INT32_MAX}) {
    plan(JpegScale, scaled(15, 15, scale));
    EXPECT_EQ(reply, failure("Bad scale parameter")) << scale;
  }
  for (const int size : {15, 0, -1, -16, INT32_MIN}) {
    plan(JpegScale, scaled(size, size, 100));
    EXPECT_EQ(reply, failure("Bad xSize parameter")) << size;
    plan(JpegScale, scaled(16, size, 1));
    EXPECT_EQ(reply, failure("Bad ySize parameter")) << size;
  }
  EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST_F(JpegTranscodeTest, ChecksTheClipRectangleBeforeTheSize) {
  picture(64, 48);
  const std::pair<const char*, const char*> cases[] = {
      {R"("xTop":0,"yTop":0,"xSize":64,"ySize":48)", R"(Scale factor is too small\n)"},
      // Rounded down to 16 and 64, both within the picture.
      {R"("xTop":48,"yTop":0,"xSize":31,"ySize":48)", R"(Scale factor is too small\n)"},
      {R"("xTop":0,"yTop":0,"xSize":79,"ySize":48)", R"(Scale factor is too small\n)"},
      {R"("xTop":-16,"yTop":0,"xSize":80,"ySize":48)", R"(Scale factor is too small\n)"},
      // The sum wraps around.
      {R"("xTop":2147483647,"yTop":0,"xSize":16,"ySize":16)", R"(Scale factor is too small\n)"},
      {R"("xTop":1,"yTop":0,"xSize":64,"ySize":48)", "invalid clip rect"},
      {R"("xTop":0,"yTop":1,"xSize":64,"ySize":48)", "invalid clip rect"},
      {R"("xTop":0,"yTop":0,"xSize":80,"ySize":48)", "invalid clip rect"}};
  for (const auto& [members, text] : cases) {
    EXPECT_EQ(plan(JpegScale, std::string(members) + R"(,"scale":100)"), std::nullopt);
    EXPECT_EQ(reply, failure(text)) << members;
    EXPECT_EQ(fs::file_size(dir / "out/small.jpg"), 0u);
  }
}

TEST_F(JpegTranscodeTest, MissingInputMakesNothing) {
  EXPECT_EQ(plan(JpegResize, R"("size":1000)"), std::nullopt);
  EXPECT_EQ(reply, failure("Unable to open file"));
  EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST_F(JpegTranscodeTest, ReportsWhatKeepsItFromWriting) {
  picture(64, 48);
  dir.write("out", "a file where a directory should be");
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("failed to open output file"));

  fs::remove(dir / "out");
  fs::create_directories(dir / "out/small.jpg");
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("failed to open output file"));
}

TEST_F(JpegTranscodeTest, WhatIsNoRegularFileIsNeitherReadNorWritten) {
  const std::string input = picture(64, 48);
  fs::create_directory(dir / "out");
  ASSERT_EQ(mkfifo((dir / "out/small.jpg").c_str(), 0600), 0);
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("failed to open output file"));
  EXPECT_TRUE(fs::is_fifo(dir / "out/small.jpg"));

  // A device is opened when somebody follows a link to it.
  fs::remove(dir / "out/small.jpg");
  fs::create_symlink("/dev/null", dir / "out/small.jpg");
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("failed to open output file"));

  fs::remove_all(dir / "out");
  fs::remove(input);
  ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("Unable to open file"));
  fs::remove(input);
  fs::create_directory(input);
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("Unable to open file"));
  EXPECT_FALSE(fs::exists(dir / "out")) << "made before the input was looked at";
}

TEST_F(JpegTranscodeTest, TheInputIsNeverTheOutput) {
  const std::string input = picture(64, 48);
  const auto size = fs::file_size(input);
  fs::create_directory(dir / "out");
  const std::string output = dir / "out/small.jpg";
  fs::create_symlink(input, output);
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("failed to open output file"));

  fs::remove(output);
  fs::create_hard_link(input, output);
  plan(JpegResize, R"("size":1000)");
  EXPECT_EQ(reply, failure("failed to open output file"));
  EXPECT_EQ(size, fs::file_size(input));

  // A link that leads to nothing yet is a new name.
  fs::remove(output);
  fs::create_symlink(dir / "new.jpg", output);
  EXPECT_TRUE(plan(JpegResize, R"("size":100000)"));
  EXPECT_TRUE(fs::exists(dir / "new.jpg"));
}

TEST_F(JpegTranscodeTest, ReportsAnOutputDirectoryItCannotMake) {
  const std::string in = picture(64, 48);
  for (const char* out : {"/proc/none/out.jpg", "", "/", "//"}) {
    const Request request(R"({"inFile":")" + in + R"(","outFile":")" + out + R"(","size":1000})");
    TranscodeServer::resizeImage(fake_vela::handle(), request.message(), nullptr);
    EXPECT_THAT(request.replies(), ElementsAre(failure("failed to create output directory")))
        << out;
  }
}

TEST_F(JpegTranscodeTest, UnknownCommandIsRefused) {
  picture(64, 48);
  plan(static_cast<JpegTranscodeCommand>(3), R"("size":1000)");
  EXPECT_EQ(reply, failure("Unknown jpeg transcoding command"));
}

TEST_F(JpegTranscodeTest, FailureAfterOpeningLeavesTheOutputEmpty) {
  picture(64, 48);
  fs::create_directory(dir / "out");
  dir.write("out/small.jpg", "what was there");
  plan(JpegScale, R"("xTop":0,"yTop":0,"xSize":16,"ySize":16,"scale":50)");
  EXPECT_EQ(fs::file_size(dir / "out/small.jpg"), 0u);
}

TEST_F(JpegTranscodeTest, WhatIsNoJpegEndsTheProcess) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "Empty input file"},
      {"no picture", "Not a JPEG file: starts with 0x6e 0x6f"},
      {std::string("\xff\xd8\xff\xd9"), "JPEG datastream contains no image"}};
  for (const auto& [content, words] : cases) {
    dir.write("in.jpg", content);
    EXPECT_EXIT(plan(JpegResize, R"("size":1000)"), testing::ExitedWithCode(1), words);
    EXPECT_EQ(fs::file_size(dir / "out/small.jpg"), 0u);
  }
}

}  // namespace
