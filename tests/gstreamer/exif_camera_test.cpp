#include "platform/jpeg/exif_camera.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/jpeg_media.h"

namespace {

// A payload of two texts, each behind the directory; a text shorter than 4 stands in its entry.
Bytes exifOf(const std::string& make, const std::string& model) {
  std::string bytes("Exif\0\0II*\0\10\0\0\0\2\0", 16);
  std::string behind;
  const auto number = [](size_t value) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
      text += static_cast<char>(value >> 8 * i & 0xff);
    }
    return text;
  };
  for (const auto& [tag, text] : {std::pair('\x0f', make), std::pair('\x10', model)}) {
    bytes += {tag, 1, 2, 0};
    bytes += number(text.size());
    bytes += text.size() <= 4 ? (text + "    ").substr(0, 4) : number(8 + 30 + behind.size());
    if (text.size() > 4) behind += text;
  }
  bytes += number(0) + behind;
  return {bytes.begin(), bytes.end()};
}

TEST(ExifCamera, IsMakerAndModelTheMakerOnce) {
  EXPECT_EQ(exifCamera(exifOf({"Apple\0", 6}, {"iPhone 6\0", 9})), "Apple iPhone 6");
  EXPECT_EQ(exifCamera(exifOf({"Canon\0", 6}, {"Canon EOS\0", 10})), "Canon EOS");
  EXPECT_EQ(exifCamera(exifOf({"LG \0", 4}, {"G2\0", 3})), "LG G2");
  EXPECT_EQ(exifCamera(exifOf("   ", {"Handheld\0\0", 10})), "Handheld");
  EXPECT_EQ(exifCamera(exifOf("Maker without end", "")), "Maker without end");
  for (const bool bigEndian : {false, true}) {
    EXPECT_EQ(exifCamera(makeExif({.bigEndian = bigEndian}, 8, 8)), "Tarn Test camera");
  }
}

TEST(ExifCamera, NothingReachesATerminalThatItMightObey) {
  EXPECT_EQ(exifCamera(exifOf("\033[31mred", "a\nb\xc3\xa4")), "?[31mred a?b??");
  EXPECT_EQ(exifCamera(exifOf(std::string(5000, 'm'), "")), std::string(100, 'm'));
}

TEST(ExifCamera, WhatIsNotThereIsNotTold) {
  EXPECT_EQ(exifCamera({}), "");
  EXPECT_EQ(exifCamera(exifOf("", "")), "");
  Bytes cut = exifOf("Maker", "Model of a camera");
  cut.resize(cut.size() - 1);
  EXPECT_EQ(exifCamera(cut), "Maker");
  const Bytes whole = exifOf("Maker", "Model");
  for (size_t size = 0; size < 46; ++size) {
    EXPECT_EQ(exifCamera({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}), "")
        << size;
  }
}

}  // namespace
