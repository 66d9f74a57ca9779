// Photos of every kind come out under budget, looking as before, with their metadata.
#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <set>
#include <sstream>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"

namespace {

namespace fs = std::filesystem;

struct Photo {
  const char* name;
  JpegRecipe recipe;
};

JpegRecipe makeRecipe(Subsampling subsampling, bool progressive = false) {
  JpegRecipe recipe;
  recipe.width = 1600;
  recipe.height = 1200;
  recipe.quality = 97;
  recipe.subsampling = subsampling;
  recipe.progressive = progressive;
  return recipe;
}

JpegRecipe fromCamera(bool bigEndian, int orientation) {
  JpegRecipe recipe = makeRecipe(Subsampling::S422);
  recipe.jfif = false;
  recipe.exif = ExifRecipe{.bigEndian = bigEndian,
                           .shortDimensions = bigEndian,
                           .orientation = orientation,
                           .gps = true,
                           .makerNoteBytes = 5000,
                           .thumbnail = true};
  recipe.xmp =
      "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
      "xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' "
      "xmlns:xmp='http://ns.adobe.com/xap/1.0/' xmp:Rating='4'/></rdf:RDF></x:xmpmeta>";
  recipe.iptcCaption = "a caption";
  recipe.iccBytes = 3000;
  recipe.comment = "a comment";
  return recipe;
}

std::vector<Photo> photos() {
  return {{"baseline420", makeRecipe(Subsampling::S420)},
          {"baseline422", makeRecipe(Subsampling::S422)},
          {"baseline444", makeRecipe(Subsampling::S444)},
          {"grayscale", makeRecipe(Subsampling::Gray)},
          {"progressive", makeRecipe(Subsampling::S420, true)},
          {"progressive444", makeRecipe(Subsampling::S444, true)},
          {"cameraII", fromCamera(false, 1)},
          {"cameraMM", fromCamera(true, 6)},
          {"rotatedII", fromCamera(false, 8)}};
}

// Every field that exiftool finds, less those that describe the file and its picture data.
std::multiset<std::string> metadata(const std::string& path) {
  const std::string output = runCommand(
                                 "exiftool -a -u -G1 -s -x File:all -x System:all -x Composite:all "
                                 "-x ExifTool:all -x ExifImageWidth -x ExifImageHeight " +
                                 path)
                                 .out;
  std::multiset<std::string> fields;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    fields.insert(line);
  }
  return fields;
}

class PhotosTest : public testing::Test {
 protected:
  InstalledSystem system;
  const std::string in = system.files() / "in.jpg";
  const std::string out = system.files() / "out.jpg";
};

TEST_F(PhotosTest, FitTheBudgetAndLookAsBefore) {
  for (const Photo& photo : photos()) {
    SCOPED_TRACE(photo.name);
    ASSERT_TRUE(writeBytes(in, makeJpeg(photo.recipe)));
    const int budget = static_cast<int>(fs::file_size(in)) - 1;
    const auto result = system.call("resizeImage", resizeRequest(in, out, budget));
    EXPECT_THAT(result.reply,
                testing::StartsWith(R"({"returnValue":true,"xSize":1600,"ySize":1200,)"));
    EXPECT_LE(fs::file_size(out), static_cast<unsigned>(budget));
    EXPECT_EQ(runCommand("identify -format '%wx%h' " + out).out, "1600x1200");

    const double psnr = atof(runCommand("compare -metric PSNR -define "
                                        "jpeg:ignore-orientation=true " +
                                        in + " " + out + " null: 2>&1")
                                 .out.c_str());
    EXPECT_GE(psnr, 35);
  }
}

// Against another program's scaling of the same source, so that a shift or a border shows.
TEST_F(PhotosTest, ScaleWithoutBorderOrShift) {
  for (const Photo& photo : photos()) {
    SCOPED_TRACE(photo.name);
    ASSERT_TRUE(writeBytes(in, makeJpeg(photo.recipe)));
    const int budget = static_cast<int>(fs::file_size(in)) / 4;
    const auto result = system.call("resizeImage", resizeRequest(in, out, budget));
    ASSERT_THAT(result.reply, testing::StartsWith(R"({"returnValue":true,)"));
    const std::string size = runCommand("identify -format '%wx%h' " + out).out;
    EXPECT_EQ(size, "800x608");
    const double psnr =
        atof(runCommand("convert " + in + " -resize " + size + "! " + in + ".png && " +
                        "compare -metric PSNR " + in + ".png " + out + " null: 2>&1")
                 .out.c_str());
    EXPECT_GE(psnr, 35);
  }
}

TEST_F(PhotosTest, KeepEveryFieldOfTheirMetadata) {
  auto all = photos();
  all.push_back({"profileInTwoSegments", fromCamera(false, 3)});
  all.back().recipe.iccBytes = 70000;
  all.back().recipe.content = Content::Noise;  // the picture has to be larger than its metadata
  all.push_back({"jfifAndExif", fromCamera(true, 1)});
  all.back().recipe.jfif = true;
  for (const Photo& photo : all) {
    SCOPED_TRACE(photo.name);
    ASSERT_TRUE(writeBytes(in, makeJpeg(photo.recipe)));
    const int budget = static_cast<int>(fs::file_size(in)) - 1;
    ASSERT_TRUE(system.call("resizeImage", resizeRequest(in, out, budget)).ok);
    const auto before = metadata(in);
    EXPECT_FALSE(before.empty());
    EXPECT_EQ(metadata(out), before);
  }
}

TEST_F(PhotosTest, TellTheirNewSizeInTheMetadata) {
  for (const bool bigEndian : {false, true}) {
    ASSERT_TRUE(writeBytes(in, makeJpeg(fromCamera(bigEndian, 1))));
    ASSERT_TRUE(system.call("resizeImage", resizeRequest(in, out, 150000)).ok);
    const std::string size = runCommand("identify -format '%w %h' " + out).out;
    EXPECT_EQ(
        runCommand("exiftool -T -p '$ExifImageWidth $ExifImageHeight' " + out + " | tr -d '\\n'")
            .out,
        size);
  }
}

// The thumbnail and the maker note give way to the picture; all else stays.
TEST_F(PhotosTest, ShedBulkyMetadataBeforeTheyBecomeTiny) {
  JpegRecipe recipe = fromCamera(true, 6);
  recipe.exif->makerNoteBytes = 30000;
  ASSERT_TRUE(writeBytes(in, makeJpeg(recipe)));
  const auto result = system.call("resizeImage", resizeRequest(in, out, 30000));
  EXPECT_THAT(result.reply, testing::StartsWith(R"({"returnValue":true,"xSize":)"));
  auto before = metadata(in);
  std::erase_if(before, [](const std::string& line) {
    return line.find("[IFD1]") == 0 || line.find("MakerNote") != std::string::npos;
  });
  EXPECT_EQ(before, metadata(out));
}

// A budget far below what the metadata alone takes.
TEST_F(PhotosTest, SayNoWhenTheMetadataAloneIsTooMuch) {
  JpegRecipe recipe = fromCamera(false, 1);
  recipe.iccBytes = 9000;
  ASSERT_TRUE(writeBytes(in, makeJpeg(recipe)));
  const auto result = system.call("resizeImage", resizeRequest(in, out, 9000));
  EXPECT_EQ(result.reply, R"({"returnValue":false})");
}

TEST_F(PhotosTest, EncodeInPlaceOfAnOldFile) {
  ASSERT_TRUE(writeBytes(in, makeJpeg(makeRecipe(Subsampling::S420))));
  system.files().write("out.jpg", std::string(5000000, 'x'));
  ASSERT_TRUE(system.call("resizeImage", resizeRequest(in, out, 200000)).ok);
  EXPECT_LE(fs::file_size(out), 200000u);
  EXPECT_EQ(runCommand("identify " + out).exitCode, 0);
}

}  // namespace
