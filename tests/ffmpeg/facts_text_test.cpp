// Facts on their way between two processes: they arrive as they left, or not at all.
#include <gtest/gtest.h>

#include <functional>

#include "platform/ffmpeg/probe/facts_text.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/probe_report.h"

namespace {

MediaFacts exampleFacts() {
  MediaFacts facts;
  facts.path = "/a: b\n.mov";
  facts.format = "mov";
  facts.metadata = {{"title", "3:x"}, {"", ""}};
  facts.sizeBytes = int64_t{3} << 30;
  facts.durationUs = 6'020'000;
  facts.startUs = -40'000;
  facts.bitsPerSecond = 1'456'000;
  facts.durationIsGuess = true;
  facts.video.emplace();
  facts.video->codec = "mpeg4";
  facts.video->pixelFormat = "yuv420p";
  facts.video->width = 640;
  facts.video->height = 480;
  facts.video->bitsPerSecond = 1'390'000;
  facts.video->averageRate = {30000, 1001};
  facts.video->nominalRate = {30, 1};
  facts.video->timeBase = {1, 12800};
  facts.video->fullRange = true;
  facts.audio.resize(2);
  facts.audio[1].index = 2;
  facts.audio[1].layout = "stereo";
  return facts;
}

TEST(FactsTextTest, TheyArriveAsTheyLeft) {
  const MediaFacts facts = exampleFacts();
  MediaFacts arrived;
  ASSERT_TRUE(unpackFacts(packFacts(facts), &arrived));
  EXPECT_EQ(probeReport(arrived), probeReport(facts));
  EXPECT_EQ(packFacts(arrived), packFacts(facts));
  EXPECT_EQ(arrived.sizeBytes, facts.sizeBytes);
  EXPECT_TRUE(arrived.durationIsGuess && arrived.video->fullRange);
}

TEST(FactsTextTest, APartOrMoreThanAllIsNothing) {
  const std::string text = packFacts(exampleFacts());
  MediaFacts arrived;
  for (size_t size = 0; size < text.size(); ++size) {
    EXPECT_FALSE(unpackFacts(text.substr(0, size), &arrived)) << size;
  }
  EXPECT_FALSE(unpackFacts(text + "0:", &arrived));
  EXPECT_FALSE(unpackFacts("99999999999999999999:a", &arrived));
  EXPECT_FALSE(unpackFacts("-1:a", &arrived));
}

// What nothing that computes with the figures is ready for.
TEST(FactsTextTest, FiguresThatNoMovieHasAreRefused) {
  const std::function<void(MediaFacts*)> lies[] = {
      [](MediaFacts* f) { f->durationUs = -1; },
      [](MediaFacts* f) { f->sizeBytes = -1; },
      [](MediaFacts* f) { f->startUs = INT64_MIN; },
      [](MediaFacts* f) { f->bitsPerSecond = -5; },
      [](MediaFacts* f) {
        f->video->averageRate = {25, 0};
      },
      [](MediaFacts* f) {
        f->video->nominalRate = {0, 1};
      },
      [](MediaFacts* f) {
        f->video->timeBase = {0, 1};
      },
      [](MediaFacts* f) { f->video->bitsPerSecond = 0; },
      [](MediaFacts* f) { f->video->width = -2; },
      [](MediaFacts* f) { f->video->quarterTurns = 4; },
      [](MediaFacts* f) { f->audio.resize(5000); },
  };
  for (const auto& lie : lies) {
    MediaFacts facts = exampleFacts();
    lie(&facts);
    MediaFacts arrived;
    EXPECT_FALSE(unpackFacts(packFacts(facts), &arrived)) << &lie - lies;
  }
}

}  // namespace
