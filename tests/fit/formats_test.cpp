// Photos of other formats than JPEG, through the programs that make them fit.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdlib>

#include "tests/support/jpeg_media.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class FitFormatsTest : public testing::Test {
 protected:
  bool shell(const std::string& command) const {
    return system(("cd '" + dir.path() + "' && " + command).c_str()) == 0;
  }
  // Of red and blue halves, with some noise to make it heavy.
  std::string make(const std::string& name, const std::string& more = "") const {
    EXPECT_TRUE(
        shell("convert -size 160x240 xc:red xc:blue +append -seed 3 -attenuate 0.3 "
              "+noise Gaussian " +
              more + " " + name))
        << name;
    return name;
  }
  // What the worker tells.
  std::string work(const std::string& words, const std::string& in, const std::string& out) const {
    EXPECT_TRUE(shell("rm -f " + out + "; { " FIT_WORKER " " + words + " 2>&1 <" + in + " 1<>" +
                      out + "; echo status $?; } | cat >told"));
    const std::string told = readFile(dir / "told");
    isDone = told.ends_with("status 0\n");
    return told;
  }
  Bytes fitted(const std::string& in, const std::string& words = "max-bytes=6000") const {
    const std::string told = work("fit " + words, in, "out");
    EXPECT_TRUE(isDone) << in << ": " << told;
    return readBytes(dir / "out");
  }

  const TempDir dir;
  mutable bool isDone = false;
};

// The red and the blue of the pixel at a share of the width and half the height.
std::pair<int, int> colourAt(const Bytes& jpeg, double share, int width, int height) {
  const Bytes pixels = decodePixels(jpeg);
  const size_t at = (static_cast<size_t>(height / 2 * width) + static_cast<size_t>(width * share));
  if (pixels.size() < 3 * at + 3) return {-1, -1};
  return {pixels[3 * at], pixels[3 * at + 2]};
}

std::pair<int, int> sizeTold(const std::string& told) {
  const auto number = [&](const std::string& name) {
    const size_t at = told.find(name + "=");
    return at == told.npos ? 0 : atoi(told.c_str() + at + name.size() + 1);
  };
  return {number("width"), number("height")};
}

TEST_F(FitFormatsTest, EachComesOutAsAJpegOfItsColours) {
  for (const std::string format : {"png", "gif", "webp", "tiff", "heic", "avif"}) {
    const std::string in = make("in." + format);
    EXPECT_THAT(work("inspect", in, "none"), HasSubstr("word format " + format + "\n"));
    EXPECT_THAT(readFile(dir / "told"), HasSubstr("height=240"));
    const Bytes made = fitted(in);
    EXPECT_LE(made.size(), 6000u) << format;
    const auto [width, height] = sizeTold(readFile(dir / "told"));
    EXPECT_NEAR(width * 3, height * 4, 6) << format;
    const auto [red, lessBlue] = colourAt(made, 0.25, width, height);
    const auto [lessRed, blue] = colourAt(made, 0.75, width, height);
    EXPECT_GT(red, lessBlue + 100) << format;
    EXPECT_GT(blue, lessRed + 100) << format;
  }
}

TEST_F(FitFormatsTest, TransparentIsWhite) {
  for (const std::string format : {"png", "gif", "webp", "tiff"}) {
    ASSERT_TRUE(
        shell("convert -size 200x200 xc:none -fill black -draw 'rectangle 0,0 40,40' -depth "
              "8 in." +
              format));
    const Bytes made = fitted("in." + format, "max-bytes=20000");
    const auto [width, height] = sizeTold(readFile(dir / "told"));
    const auto [red, blue] = colourAt(made, 0.5, width, height);
    EXPECT_GT(red, 250) << format;
    EXPECT_GT(blue, 250) << format;
  }
}

TEST_F(FitFormatsTest, DeepGrayAndIndexedPicturesAreRead) {
  const std::pair<const char*, const char*> kKinds[] = {{"in.png", "-depth 16"},
                                                        {"in.png", "-colors 16 -type Palette"},
                                                        {"in.png", "-monochrome"},
                                                        {"in.tiff", "-colorspace Gray -depth 16"}};
  for (const auto& [name, more] : kKinds) {
    EXPECT_FALSE(decodePixels(fitted(make(name, more))).empty()) << more;
  }
  make("in.tiff", "-colorspace CMYK");
  const Bytes made = fitted("in.tiff");
  const auto [width, height] = sizeTold(readFile(dir / "told"));
  const auto [red, blue] = colourAt(made, 0.25, width, height);
  EXPECT_GT(red, blue + 100);
}

TEST_F(FitFormatsTest, ItIsTurnedUprightInItsProfile) {
  JpegRecipe recipe;
  recipe.width = 320;
  recipe.height = 200;
  recipe.content = Content::Noise;
  recipe.iccBytes = 400;
  recipe.exif = ExifRecipe{.orientation = 6};
  ASSERT_TRUE(writeBytes(dir / "photo.jpg", makeJpeg(recipe)));
  for (const std::string format : {"webp", "tiff"}) {
    ASSERT_TRUE(shell("convert photo.jpg in." + format));
    const Bytes made = fitted("in." + format);
    const auto [width, height] = sizeTold(readFile(dir / "told"));
    EXPECT_LT(width, height) << format;
    const std::string text(made.begin(), made.end());
    EXPECT_THAT(text, HasSubstr("ICC_PROFILE")) << format;
    const Bytes bare = fitted("in." + format, "max-bytes=6000 keep-metadata=none");
    EXPECT_THAT(std::string(bare.begin(), bare.end()), Not(HasSubstr("Exif"))) << format;
  }
}

TEST_F(FitFormatsTest, OtherFormatsAreWrittenWithinTheirBytes) {
  ASSERT_TRUE(writeBytes(dir / "in.jpg", makeJpeg({.width = 400,
                                                   .height = 300,
                                                   .content = Content::Noise,
                                                   .exif = ExifRecipe{.orientation = 6}})));
  for (const std::string format : {"webp", "avif"}) {
    const std::string asked = " format=" + format;
    const Bytes made = fitted("in.jpg", "max-bytes=5000" + asked);
    EXPECT_LE(made.size(), 5000u);
    EXPECT_GE(made.size(), 3500u);
    const auto [width, height] = sizeTold(readFile(dir / "told"));
    EXPECT_LT(width, height);
    ASSERT_TRUE(shell("cp out in." + format));
    const std::string told = work("inspect", "in." + format, "none");
    EXPECT_THAT(told, HasSubstr("word format " + format));
    EXPECT_EQ(sizeTold(told), std::pair(width, height));
    EXPECT_THAT(told, HasSubstr("orientation=1"));
    // It fits already.
    EXPECT_EQ(fitted("in." + format, "max-bytes=5000" + asked), made);

    const std::string words = work("fit max-bytes=60" + asked, "in.jpg", "out");
    ASSERT_THAT(words, HasSubstr("failure LimitTooSmall "));
    const int least = atoi(words.c_str() + words.find("Small ") + 6);
    EXPECT_GT(least, 60);
    EXPECT_LE(fitted("in.jpg", "max-bytes=" + std::to_string(least) + asked).size(),
              static_cast<size_t>(least));
  }
}

TEST_F(FitFormatsTest, WhatIsDamagedSaysSo) {
  for (const std::string format : {"png", "gif", "webp", "tiff", "heic", "avif"}) {
    const Bytes whole = readBytes(dir / make("in." + format));
    ASSERT_TRUE(
        writeBytes(dir / "cut",
                   Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(whole.size()) / 2)));
    EXPECT_THAT(work("fit max-bytes=3000", "cut", "out"), HasSubstr("failure Damaged")) << format;
    EXPECT_TRUE(readBytes(dir / "out").empty());
  }
}

// Sixty bytes that claim four thousand million pixels.
TEST_F(FitFormatsTest, AnEnormousPictureIsRefusedByItsHeader) {
  ASSERT_TRUE(shell(R"(python3 -c "
import struct, sys, zlib
def chunk(name, data):
    return struct.pack('>I', len(data)) + name + data + struct.pack('>I', zlib.crc32(name + data))
sys.stdout.buffer.write(b'\x89PNG\r\n\x1a\n' +
    chunk(b'IHDR', struct.pack('>IIBBBBB', 65000, 65000, 8, 2, 0, 0, 0)) +
    chunk(b'IDAT', zlib.compress(bytes(1000))) + chunk(b'IEND', b''))
" >in.png)"));
  EXPECT_THAT(work("fit max-bytes=3000", "in.png", "out"), HasSubstr("failure TooLarge"));
  EXPECT_THAT(work("inspect", "in.png", "out"), HasSubstr("failure TooLarge"));
}

}  // namespace
