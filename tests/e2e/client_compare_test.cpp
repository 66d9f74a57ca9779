// The client's picture of before and after.
#include <gmock/gmock.h>

#include <cstdlib>
#include <regex>

#include "tests/e2e/installed_client.h"
#include "tests/support/jpeg_media.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

class ClientCompareTest : public testing::Test, protected InstalledClient {
 protected:
  void make(const JpegRecipe& recipe) {
    EXPECT_TRUE(writeBytes(dir / "w/in.jpg", makeJpeg(recipe)));
  }
  // What ImageMagick says in the folder.
  std::string said(const std::string& words) const {
    return runCommand("cd " + (dir / "w") + " && " + words + " 2>&1").out;
  }
  // How near a part of the picture comes to a file, in dB.
  double nearness(const std::string& part, const std::string& file) const {
    const std::string shown = "both.png -crop " + part + " +repage";
    return atof(
        said("convert " + shown + " part.png && compare -metric PSNR part.png '" + file + "' null:")
            .c_str());
  }
};

double ssimIn(const std::string& json) {
  std::smatch match;
  return std::regex_search(json, match, std::regex("\"ssim\":([0-9.]+)")) ? std::stod(match[1]) : 0;
}

TEST_F(ClientCompareTest, ShowsBothSideBySide) {
  make({.width = 500, .height = 375});
  const auto result = run("resize-image in.jpg out.jpg --size 4k --compare both.png");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out, MatchesRegex(".*/w/out.jpg: .* kB, SSIM 0[.]9[0-9]+\n"));
  EXPECT_EQ(said("identify -format '%m %w %h' both.png"), "PNG 1048 443");
  EXPECT_GT(nearness("500x375+16+52", "in.jpg"), 35);
  EXPECT_GT(nearness("500x375+532+52", "out.jpg[500x375!]"), 30);
  EXPECT_GT(nearness("500x375+532+52", "out.jpg[500x375!]"), nearness("500x375+532+52", "in.jpg"));
  EXPECT_THAT(namesIn(dir / "w"), ElementsAre("both.png", "in.jpg", "out.jpg", "part.png"));
}

TEST_F(ClientCompareTest, MeasuresAsTheServiceDoes) {
  make({.width = 1400, .height = 300, .content = Content::Noise});
  const std::string words = "fit in.jpg out.jpg --size 20k --json";
  const double told = ssimIn(run(words).out);
  const double measured = ssimIn(run(words + " --compare both.png").out);
  EXPECT_GT(told, 0);
  EXPECT_NEAR(measured, told, 0.002);
  EXPECT_EQ(said("identify -format '%w %h' both.png"), "2608 342");
}

TEST_F(ClientCompareTest, PhotosOfEveryKindStandUpright) {
  const JpegRecipe photo = {.width = 400, .height = 200, .exif = ExifRecipe{.orientation = 6}};
  for (const char* command : {"resize-image", "fit"}) {
    make(photo);
    EXPECT_EQ(run(command + std::string(" in.jpg out.jpg --size 5k --compare both.png")).exitCode,
              0)
        << errors();
    EXPECT_EQ(said("identify -format '%h' both.png"), "468");
    make({.width = 400, .height = 300, .subsampling = Subsampling::Gray});
    EXPECT_EQ(run(command + std::string(" in.jpg out.jpg --size 5k --compare both.png")).exitCode,
              0)
        << errors();
    EXPECT_GT(nearness("400x300+16+52", "in.jpg"), 35);
  }
  said("convert in.jpg in.png");
  EXPECT_EQ(run("fit in.png other.jpg --size 5k --compare both.png").exitCode, 0) << errors();
  EXPECT_GT(nearness("400x300+16+52", "in.png"), 35);
}

TEST_F(ClientCompareTest, RefusesWhatItCannotShow) {
  make({.width = 400, .height = 300});
  fs::copy_file(dir / "w/in.jpg", dir / "w/in.png");
  dir.write("w/movie.mp4", "no photo");
  const std::tuple<const char*, int, const char*> cases[] = {
      {"in.jpg out.jpg --compare both.jpg", 2, "write a name that ends in .png"},
      {"in.jpg --out-dir d --compare both.png", 2, "--compare is for one IN and OUT"},
      {"in.jpg - --compare both.png", 2, "--compare needs a file for OUT"},
      {"movie.mp4 out.mp4 --compare both.png", 1, "/movie.mp4 is none"},
      {"in.png out.jpg --compare in.png", 1, "--compare would replace "},
      {"in.jpg out.png --compare ./out.png", 1, "--compare would replace "},
      {"in.jpg out.png", 1, "/out.png: write a name that ends in .jpg, .webp or .avif"},
  };
  for (const auto& [words, exitCode, reason] : cases) {
    EXPECT_EQ(run("fit --size 5k " + std::string(words)).exitCode, exitCode) << words;
    EXPECT_THAT(errors(), HasSubstr(reason));
  }
  EXPECT_THAT(namesIn(dir / "w"), ElementsAre("in.jpg", "in.png", "movie.mp4"));
  EXPECT_EQ(run("fit --size 5k in.jpg out.jpg --compare movie.mp4/both.png").exitCode, 1);
  EXPECT_THAT(errors(),
              HasSubstr("/out.jpg is made, but there is no picture of both: cannot write"));
}

}  // namespace
