#include <gtest/gtest.h>

#include "platform/ffmpeg/encode/progress_reader.h"
#include "platform/ffmpeg/text/error_words.h"
#include "platform/ffmpeg/text/plain_text.h"

namespace {

TEST(PlainTextTest, OneLineWithoutControls) {
  EXPECT_EQ(printableLine("a\nb\tc\x7f\xc3\xa9"), "a b c \xc3\xa9");
  EXPECT_EQ(asciiLine("a\n\xc3\xa9"), "a ??");
}

TEST(PlainTextTest, NoDuration) {
  EXPECT_EQ(printableLine("xDuration: 1 Duration:\n2"), "xDuration; 1 Duration; 2");
}

TEST(ErrorWordsTest, AddressesRepeatsAndHiddenPathsGo) {
  ErrorWords words;
  words.rename("/d/.hidden/output", "/d/out.mp4");
  words.add("[mpeg4 @ 0x55d0c8] bitrate ");
  words.add("too low\n[mpeg4 @ 0x55d0ff] bitrate too low\n\n/d/.hidden/output: No space\nlast");
  words.finish();
  EXPECT_EQ(words.text(), "[mpeg4] bitrate too low\n/d/out.mp4: No space\nlast\n");
}

TEST(ErrorWordsTest, AFloodIsBounded) {
  ErrorWords words;
  for (int i = 0; i < 1000; ++i) {
    words.add("line " + std::to_string(i) + std::string(5000, 'x') + "\n");
  }
  words.finish();
  const std::string text = words.text();
  EXPECT_LT(text.size(), 50000U);
  EXPECT_TRUE(text.starts_with("line 0x"));
  EXPECT_NE(text.find("(960 lines left out)\n"), std::string::npos);
  EXPECT_NE(text.find("line 999x"), std::string::npos);
}

TEST(ProgressReaderTest, PiecesCutAnywhere) {
  ProgressReader reader;
  EXPECT_FALSE(reader.add("frame=0\nout_time_us=N/A\nout_ti"));
  EXPECT_TRUE(reader.add("me_us=1234567\nout_time=00:00:01.234567\nprogress=continue\n"));
  EXPECT_EQ(reader.positionMs(), 1234);
  EXPECT_FALSE(reader.add("out_time_us=1234567\nprogress=continue\n"));
  EXPECT_FALSE(reader.add("out_time_us=-5\nnonsense\n"));
  EXPECT_TRUE(reader.add("frame=7\n"));
  EXPECT_TRUE(reader.add("total_size=99\n"));
  EXPECT_EQ(reader.positionMs(), 1234);
}

}  // namespace
