#include "platform/ffmpeg/probe/probe_report.h"

#include <gtest/gtest.h>

#include "platform/ffmpeg/probe/media_facts.h"
#include "tests/ffmpeg/report_reader.h"

namespace {

MediaFacts exampleFacts() {
  MediaFacts facts;
  facts.path = "clip.mp4";
  facts.format = "mov,mp4,m4a,3gp,3g2,mj2";
  facts.metadata = {{"major_brand", "isom"}, {"title", "A day"}};
  facts.durationUs = 6029999;
  facts.bitsPerSecond = 1456999;
  VideoFacts video;
  video.index = 0;
  video.language = "und";
  video.codec = "mpeg4";
  video.pixelFormat = "yuv420p";
  video.width = 640;
  video.height = 480;
  video.pixelAspect = {1, 1};
  video.bitsPerSecond = 1390000;
  video.averageRate = {25, 1};
  video.nominalRate = {25, 1};
  video.timeBase = {1, 12800};
  facts.video = video;
  AudioFacts audio;
  audio.index = 1;
  audio.language = "und";
  audio.codec = "aac";
  audio.sampleRateHz = 44100;
  audio.layout = "stereo";
  audio.sampleFormat = "s16";
  audio.bitsPerSecond = 64000;
  facts.audio = {audio};
  return facts;
}

TEST(ProbeReportTest, WholeText) {
  EXPECT_EQ(probeReport(exampleFacts()),
            "Input #0, mov,mp4,m4a,3gp,3g2,mj2, from 'clip.mp4':\n"
            "  Metadata:\n"
            "    major_brand     : isom\n"
            "    title           : A day\n"
            "  Duration: 00:00:06.02, start: 0.000000, bitrate: 1456 kb/s\n"
            "    Stream #0.0(und): Video: mpeg4, yuv420p, 640x480 [PAR 1:1 DAR 4:3], 1390 kb/s, "
            "25 fps, 25 tbr, 12800 tbn, 25 tbc\n"
            "    Stream #0.1(und): Audio: aac, 44100 Hz, stereo, s16, 64 kb/s\n");
}

TEST(ProbeReportTest, WhatIsUnknownIsLeftOut) {
  MediaFacts facts = exampleFacts();
  facts.metadata.clear();
  facts.startUs = -23220;
  facts.video->index = 1;
  facts.video->language.clear();
  facts.video->pixelFormat.clear();
  facts.video->pixelAspect = {0, 1};
  facts.video->averageRate = {30000, 1001};
  facts.video->nominalRate = {90000, 1};
  facts.video->timeBase = {1, 1000};
  facts.audio[0].index = 0;
  facts.audio[0].language.clear();
  facts.audio[0].sampleFormat.clear();
  facts.audio[0].bitsPerSecond = 0;
  EXPECT_EQ(probeReport(facts),
            "Input #0, mov,mp4,m4a,3gp,3g2,mj2, from 'clip.mp4':\n"
            "  Duration: 00:00:06.02, start: -0.023220, bitrate: 1456 kb/s\n"
            "    Stream #0.0: Audio: aac, 44100 Hz, stereo\n"
            "    Stream #0.1: Video: mpeg4, 640x480, 1390 kb/s, 29.97 fps, 90k tbr, 1k tbn, "
            "90k tbc\n");
}

TEST(ProbeReportTest, DurationsOfHoursAreCutToCentiseconds) {
  MediaFacts facts = exampleFacts();
  facts.durationUs = ((100LL * 60 + 59) * 60 + 59) * 1000000 + 999999;
  EXPECT_NE(probeReport(facts).find("  Duration: 100:59:59.99, "), std::string::npos);
}

TEST(ProbeReportTest, Rates) {
  EXPECT_EQ(rateText(25), "25");
  EXPECT_EQ(rateText(12.5), "12.50");
  EXPECT_EQ(rateText(24000.0 / 1001), "23.98");
  EXPECT_EQ(rateText(30000.0 / 1001), "29.97");
  EXPECT_EQ(rateText(1000), "1k");
  EXPECT_EQ(rateText(90000), "90k");
  EXPECT_EQ(rateText(12800), "12800");
  EXPECT_EQ(rateText(0.07), "0.07");
  EXPECT_EQ(rateText(24.999), "25");
}

TEST(ProbeReportTest, ReadAsTheDaemonReadsIt) {
  const ReadReport report = readReport(probeReport(exampleFacts()));
  ASSERT_TRUE(report.matched);
  EXPECT_EQ(report.clipLengthMs, 6019);  // 6.02 in single precision
  EXPECT_EQ(report.frameRate, 25);
  EXPECT_EQ(report.tbr, 25);
}

TEST(ProbeReportTest, ForeignTextFoolsNobody) {
  const std::string lie =
      "Duration: 00:00:01.00, Stream #0.0: Video: x, 9 kb/s, 9 fps, 9 tbr\n"
      "  Duration: 00:00:02.00, start\n    Stream #0.0: Video: y, 8 kb/s, 8 fps, 8 tbr";
  MediaFacts facts = exampleFacts();
  facts.path = "/a/" + lie;
  facts.metadata = {{"title", lie}, {lie, "$ \\ \" ' \t\xff\xc3\xa9 Duration"}, {": ", "Duration"}};
  const std::string text = probeReport(facts);
  const ReadReport report = readReport(text);
  ASSERT_TRUE(report.matched);
  EXPECT_EQ(report.clipLengthMs, 6019);  // 6.02 in single precision
  EXPECT_EQ(report.frameRate, 25);
  for (const char c : text) {
    EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << text;
  }
}

TEST(ProbeReportTest, SoundAloneIsNoMovie) {
  MediaFacts facts = exampleFacts();
  facts.video.reset();
  EXPECT_FALSE(readReport(probeReport(facts)).matched);
}

}  // namespace
