// Clips out of the ordinary under a size limit: the whole clip comes out, upright, and what is seen
// and what is heard at one moment of the source is seen and heard at one moment of the result.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

constexpr double kInSync = 0.08;  // seconds

struct Format {
  const char* name;
  std::string extension;
  std::vector<std::string> words;
};

void PrintTo(const Format& format, std::ostream* out) {
  *out << format.name;
}

const Format kMpeg4 = {
    "Mpeg4", ".mp4", {"-vcodec", "mpeg4", "-b", "200k", "-acodec", "libfaac", "-ab", "32000"}};
const Format kH263 = {"H263",
                      ".3gp",
                      {"-vcodec", "h263", "-b", "200k", "-acodec", "libopencore_amrnb", "-ab",
                       "12200", "-ar", "8000", "-ac", "1"}};

// What a viewer notices of a movie, in seconds from its start; -1 for what never happens.
struct Seen {
  double flash = -1;  // when the picture first turns bright
  double end = -1;    // of the last picture
  double beep = -1;   // when the sound first rises, to a hundredth of a second
};

struct Sample {
  double moment;
  double value;
};

// Reads what the filters `metadata` and `ametadata` print.
std::vector<Sample> samples(const std::string& printed) {
  std::vector<Sample> found;
  std::istringstream lines(printed);
  double moment = -1;
  for (std::string line; std::getline(lines, line);) {
    const size_t time = line.find("pts_time:");
    const size_t value = line.find('=');
    if (time != std::string::npos) {
      moment = strtod(line.c_str() + time + 9, nullptr);
    } else if (value != std::string::npos) {
      found.push_back({moment, strtod(line.c_str() + value + 1, nullptr)});
    }
  }
  return found;
}

double firstOver(const std::vector<Sample>& found, double threshold) {
  for (const Sample& sample : found) {
    if (sample.value > threshold) return sample.moment;
  }
  return -1;
}

Seen watch(const std::string& path) {
  const TempDir folder;
  const std::string pictures = folder / "pictures";
  const std::string sound = folder / "sound";
  runSystemFfmpeg({"-i", path, "-map", "0:v", "-map", "0:a?", "-vf",
                   "signalstats,metadata=print:key=lavfi.signalstats.YAVG:file=" + pictures, "-af",
                   "aresample=8000,asetnsamples=80,astats=metadata=1:reset=1,"
                   "ametadata=print:key=lavfi.astats.Overall.RMS_level:file=" +
                       sound,
                   "-fps_mode", "passthrough", "-f", "null", "-"});
  Seen seen;
  const std::vector<Sample> brightness = samples(readFile(pictures));
  seen.flash = firstOver(brightness, 120);
  seen.beep = fs::exists(sound) ? firstOver(samples(readFile(sound)), -30) : -1;
  const size_t count = brightness.size();
  // The last picture stays as long as the one before it did.
  if (count > 1) seen.end = 2 * brightness[count - 1].moment - brightness[count - 2].moment;
  return seen;
}

std::string flash(double from, double until) {
  std::ostringstream text;
  text << "between(t," << from - 0.001 << "," << until - 0.001 << ")";
  return text.str();
}

// A source's description for lavfi: black, white between two moments, in that rate and size.
std::string flashingPicture(double seconds, double from, double until,
                            const std::string& size = "240x180", const std::string& rate = "25") {
  return "color=black:s=" + size + ":r=" + rate + ":d=" + std::to_string(seconds) +
         ",drawbox=w=iw:h=ih:color=white:t=fill:enable='" + flash(from, until) + "'";
}

std::string beepingSound(double seconds, double from, double until) {
  return "aevalsrc='0.6*sin(2*PI*880*t)*" + flash(from, until) +
         "':s=44100:d=" + std::to_string(seconds);
}

std::vector<std::string> clipWords(const std::string& picture, const std::string& sound,
                                   const std::vector<std::string>& more = {}) {
  std::vector<std::string> words = {"-f", "lavfi", "-i", picture};
  if (!sound.empty()) words.insert(words.end(), {"-f", "lavfi", "-i", sound});
  words.insert(words.end(), {"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"});
  if (!sound.empty()) words.insert(words.end(), {"-c:a", "aac"});
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

class OddClipTest : public testing::TestWithParam<Format> {
 protected:
  // Encodes under the limit; what came out keeps it and decodes.
  std::string encode(const std::string& input, int64_t limitBytes = 60'000) {
    const std::string out = folder / ("out" + GetParam().extension);
    std::vector<std::string> words = {"-i", input, "-y"};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    words.insert(words.end(), {"-fs", std::to_string(limitBytes), out});
    const RunResult run = runFfmpeg(words);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    if (run.exitCode != 0) return "";
    EXPECT_LE(fs::file_size(out), static_cast<uintmax_t>(limitBytes));
    EXPECT_EQ(decodingErrors(out), "");
    return out;
  }

  MediaFacts factsOf(const std::string& path) {
    MediaFacts facts;
    std::string error;
    EXPECT_TRUE(probeMovie(path, kThoroughProbe, &facts, &error)) << error;
    return facts;
  }

  // A source in which a flash is seen when a beep is heard, and so in the result, as late in it.
  void expectInSync(const std::string& source, double moment, double seconds) {
    Seen seen = watch(source);
    ASSERT_NEAR(seen.flash, moment, 0.041);
    ASSERT_NEAR(seen.beep, moment, 0.041);
    const std::string out = encode(source);
    ASSERT_NE(out, "");
    seen = watch(out);
    EXPECT_NEAR(seen.flash, moment, kInSync);
    EXPECT_NEAR(seen.flash, seen.beep, kInSync);
    EXPECT_NEAR(seen.end, seconds, 0.1);
  }

  TempDir folder;
};

TEST_P(OddClipTest, VariableRateStaysInSync) {
  // Runs at 25 frames a second up to 1 s, at 5 from there on.
  const std::string clip = movieClip(
      "variable.mp4",
      clipWords(flashingPicture(4, 3, 3.4) + ",select='lt(t,1)+not(mod(n,5))'",
                beepingSound(4, 3, 3.4), {"-fps_mode", "vfr", "-video_track_timescale", "90000"}));
  expectInSync(clip, 3, 4);
}

TEST_P(OddClipTest, GapInTheTimeStampsIsKept) {
  const std::string clip =
      movieClip("gap.mkv", clipWords(flashingPicture(4, 3.2, 3.6) + ",select='lt(t,1)+gte(t,3)'",
                                     beepingSound(4, 3.2, 3.6), {"-fps_mode", "vfr"}));
  expectInSync(clip, 3.2, 4);
}

TEST_P(OddClipTest, SoundThatBeginsBeforeThePicture) {
  const std::string clip =
      movieClip("late.mkv", clipWords(flashingPicture(4, 3, 3.4), beepingSound(4, 3, 3.4),
                                      {"-vf", "select='gte(t,1)'", "-fps_mode", "vfr"}));
  expectInSync(clip, 3, 4);
}

TEST_P(OddClipTest, SurroundSoundIsMixedDown) {
  // What is said comes from the front's middle, which a mix of left and right alone would lose.
  const std::string voice = "0.6*sin(2*PI*880*t)*" + flash(1, 1.4);
  const std::string clip =
      movieClip("surround.mp4", clipWords(flashingPicture(3, 1, 1.4),
                                          "aevalsrc='0|0|" + voice + "|0|0|0':c=5.1:s=48000:d=3"));
  ASSERT_EQ(factsOf(clip).audio.at(0).layout, "5.1");
  expectInSync(clip, 1, 3);
  EXPECT_THAT(factsOf(folder / ("out" + GetParam().extension)).audio.at(0).layout,
              testing::AnyOf("mono", "stereo"));
}

TEST_P(OddClipTest, NoSoundAtAll) {
  const std::string clip = movieClip("silent.mp4", clipWords(flashingPicture(2, 1, 1.4), ""));
  const std::string out = encode(clip);
  ASSERT_NE(out, "");
  EXPECT_TRUE(factsOf(out).audio.empty());
  const Seen seen = watch(out);
  EXPECT_NEAR(seen.flash, 1, kInSync);
  EXPECT_NEAR(seen.end, 2, 0.1);
}

TEST_P(OddClipTest, OnePicture) {
  const std::string clip = movieClip("one.mp4", clipWords(flashingPicture(0.04, 0, 1), ""));
  const std::string out = encode(clip);
  ASSERT_NE(out, "");
  EXPECT_EQ(watch(out).flash, 0);
}

TEST_P(OddClipTest, ATenthOfASecond) {
  const std::string clip =
      movieClip("tenth.mp4", clipWords(flashingPicture(0.12, 0.08, 1), beepingSound(0.12, 0, 1)));
  const std::string out = encode(clip);
  ASSERT_NE(out, "");
  const Seen seen = watch(out);
  EXPECT_NEAR(seen.flash, 0.08, 0.041);
  EXPECT_NEAR(seen.end, 0.12, 0.041);
}

TEST_P(OddClipTest, OddSizes) {
  const std::string clip =
      movieClip("odd.mkv", clipWords(flashingPicture(2, 1, 1.4, "161x121"), beepingSound(2, 1, 1.4),
                                     {"-pix_fmt", "yuv444p"}));
  expectInSync(clip, 1, 2);
  const MediaFacts out = factsOf(folder / ("out" + GetParam().extension));
  EXPECT_EQ(out.video->width % 2, 0);
  EXPECT_EQ(out.video->height % 2, 0);
}

TEST_P(OddClipTest, FourK) {
  const std::string clip =
      movieClip("4k.mp4", clipWords("testsrc2=s=3840x2160:r=25:d=0.4", beepingSound(0.4, 0, 1)));
  const std::string out = encode(clip, 150'000);
  ASSERT_NE(out, "");
  EXPECT_NEAR(watch(out).end, 0.4, 0.05);
}

TEST_P(OddClipTest, SixtyFiveMinutes) {
  // A picture every ten seconds, as a camera that watches a door might take.
  const std::string clip =
      movieClip("long.mp4", clipWords(flashingPicture(3900, 3600, 3650, "160x120", "1/10"), ""));
  const std::string out = encode(clip, 200'000);
  ASSERT_NE(out, "");
  const Seen seen = watch(out);
  EXPECT_NEAR(seen.flash, 3600, 10);
  EXPECT_NEAR(seen.end, 3900, 10);
}

INSTANTIATE_TEST_SUITE_P(Formats, OddClipTest, testing::Values(kMpeg4, kH263),
                         [](const auto& instance) { return std::string(instance.param.name); });

// The colour that dominates each quarter of the first frame, row by row: "r", "g", "b" or "w".
std::string quartersOf(const std::string& path, const std::string& crop) {
  const TempDir folder;
  const std::string raw = folder / "quarters.rgb";
  runSystemFfmpeg({"-i", path, "-vf", crop + "format=rgb24,scale=2:2:flags=area", "-frames:v", "1",
                   "-f", "rawvideo", raw});
  const std::string bytes = readFile(raw);
  std::string quarters;
  for (size_t at = 0; at + 2 < bytes.size(); at += 3) {
    const auto level = [&](size_t i) { return static_cast<unsigned char>(bytes[at + i]); };
    const int red = level(0);
    const int green = level(1);
    const int blue = level(2);
    if (std::min({red, green, blue}) > 120) {
      quarters += 'w';
    } else {
      quarters += red > green && red > blue ? 'r' : green > blue ? 'g' : 'b';
    }
  }
  return quarters;
}

// Red and green above, blue and white below, as a viewer sees it.
std::string quarteredClip(int rotation) {
  const std::string upright =
      "color=red:s=160x120:r=25:d=1[r];color=lime:s=160x120:r=25:d=1[g];color=blue:s=160x120:r=25:"
      "d=1[b];color=white:s=160x120:r=25:d=1[w];[r][g]hstack[above];[b][w]hstack[below];[above]["
      "below]vstack";
  // The camera was held the other way; the mark in the file turns it back.
  const std::string turned = rotation == 90    ? ",transpose=clock"
                             : rotation == 180 ? ",hflip,vflip"
                             : rotation == 270 ? ",transpose=cclock"
                                               : "";
  const std::string lying =
      movieClip("lying-" + std::to_string(rotation) + ".mp4", clipWords(upright + turned, ""));
  return movieClip(
      "rotated-" + std::to_string(rotation) + ".mp4",
      {"-i", lying, "-c", "copy", "-metadata:s:v:0", "rotate=" + std::to_string(rotation)});
}

class RotatedClipTest : public testing::TestWithParam<int> {};

TEST_P(RotatedClipTest, ComesOutUpright) {
  const std::string clip = quarteredClip(GetParam());
  ASSERT_EQ(quartersOf(clip, ""), "rgbw");
  for (const Format& format : {kMpeg4, kH263}) {
    const TempDir folder;
    const std::string out = folder / ("out" + format.extension);
    std::vector<std::string> words = {"-i", clip, "-y"};
    words.insert(words.end(), format.words.begin(), format.words.end());
    words.insert(words.end(), {"-fs", "40000", out});
    const RunResult run = runFfmpeg(words);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    // Bars, where H.263's sizes need them, are no part of the picture.
    EXPECT_EQ(quartersOf(out, "crop=0.6*iw:0.6*ih,"), "rgbw") << format.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Rotations, RotatedClipTest, testing::Values(0, 90, 180, 270),
                         [](const auto& rotation) {
                           return "By" + std::to_string(rotation.param);
                         });

}  // namespace
