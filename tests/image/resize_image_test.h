// What the tests of the image pipeline share: a picture, a request that is sent for it and its
// reply.
#ifndef TESTS_IMAGE_RESIZE_IMAGE_TEST_H
#define TESTS_IMAGE_RESIZE_IMAGE_TEST_H

#include <gmock/gmock.h>
#include <gst/gst.h>

#include <filesystem>
#include <string>

#include "src/service/transcode_server.h"
#include "tests/image/fake_encoder.h"
#include "tests/support/fake_vela.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/temp_dir.h"

constexpr char kRun[] = "virtual LaunchResult JpegTranscodeGstreamer::run()";

class ResizeImageTest : public testing::Test {
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
    const fake_vela::Request request(R"({"inFile":")" + in + R"(","outFile":")" + out +
                                     R"(","size":)" + std::to_string(targetSize) + "}");
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

inline std::string success(int width, int height, int size) {
  return R"({"returnValue":true,"xSize":)" + std::to_string(width) + R"(,"ySize":)" +
         std::to_string(height) + R"(,"ImageSize":)" + std::to_string(size) + "}";
}

#endif
