#include "platform/ffmpeg/encode/command_line.h"

#include <gtest/gtest.h>

#include "platform/ffmpeg/encode/video_filter.h"
#include "platform/ffmpeg/probe/media_facts.h"

namespace {

MediaFacts facts(int width = 640, int height = 480) {
  MediaFacts facts;
  facts.format = "mov,mp4,m4a,3gp,3g2,mj2";
  facts.video.emplace();
  facts.video->width = width;
  facts.video->height = height;
  facts.video->averageRate = {25, 1};
  facts.audio.emplace_back();
  return facts;
}

Options options(const std::vector<const char*>& words) {
  std::vector<const char*> argv = {"ffmpeg", "-i", "in.mov", "-y"};
  argv.insert(argv.end(), words.begin(), words.end());
  Options options;
  std::string error;
  EXPECT_TRUE(parseOptions(static_cast<int>(argv.size()), argv.data(), &options, &error)) << error;
  return options;
}

constexpr char kHead[] =
    "/usr/bin/ffmpeg -nostdin -hide_banner -nostats -loglevel error -progress pipe:1 "
    "-stats_period 0.25 -y -protocol_whitelist file -format_whitelist FORMATS "
    "-max_pixels 36000000 ";
constexpr char kClean[] = "-sn -dn -map_metadata -1 -map_chapters -1 ";

// The whole line, spaces between its words, the long list of formats by its name.
std::string line(const std::vector<const char*>& words, const MediaFacts& about = facts()) {
  const Options asked = options(words);
  const EncodePaths paths = {"/usr/bin/ffmpeg", asked.discardsOutput() ? "/dev/null" : "/w/output",
                             "/w/pass"};
  std::string text;
  for (const std::string& word : commandLine(asked, about, paths)) {
    text += (text.empty() ? "" : " ") + (word.starts_with("mov,") ? "FORMATS" : word);
  }
  return text;
}

TEST(CommandLineTest, OnePass) {
  EXPECT_EQ(line({"-vcodec", "mpeg4", "-b", "691k", "-acodec", "libfaac", "-ab", "76799", "o.mp4"}),
            std::string(kHead) + "-i file:in.mov -map 0:V:0? -map 0:a:0? " + kClean +
                "-c:v mpeg4 -b:v 691k -fps_mode vfr -c:a aac -b:a 76799 -f mp4 file:/w/output");
}

TEST(CommandLineTest, FirstOfTwoPasses) {
  EXPECT_EQ(line({"-vcodec", "mpeg4", "-b", "691k", "-pass", "1", "-passlogfile", "o.mp4", "-an",
                  "-f", "mp4", "/dev/null"}),
            std::string(kHead) + "-i file:in.mov -map 0:V:0? " + kClean +
                "-c:v mpeg4 -b:v 691k -fps_mode vfr -pass 1 -passlogfile /w/pass -an "
                "-f mp4 /dev/null");
}

TEST(CommandLineTest, SecondOfTwoPassesWithASizeLimit) {
  EXPECT_EQ(line({"-vcodec", "mpeg4", "-b", "691k", "-pass", "2", "-passlogfile", "o.mp4",
                  "-acodec", "libfaac", "-ab", "76799", "-fs", "949999", "o.mp4"}),
            std::string(kHead) + "-i file:in.mov -map 0:V:0? -map 0:a:0? " + kClean +
                "-c:v mpeg4 -b:v 691k -fps_mode vfr -pass 2 -passlogfile /w/pass -c:a aac "
                "-b:a 76799 -fs 949999 -f mp4 file:/w/output");
}

TEST(CommandLineTest, SpeechInAHandyClip) {
  EXPECT_EQ(line({"-s", "qcif", "-sws_flags", "fast_bilinear", "-vcodec", "h263", "-b", "120k",
                  "-r", "15.000", "-acodec", "libopencore_amrnb", "-ab", "12200", "-ar", "8000",
                  "-ac", "1", "o.3gp"}),
            std::string(kHead) + "-i file:in.mov -map 0:V:0? -map 0:a:0? " + kClean +
                "-c:v h263 -b:v 120k -r 15.000 -vf scale=w='176':h='144':flags=fast_bilinear "
                "-fps_mode cfr -c:a libopencore_amrnb -b:a 12200 -ar 8000 -ac 1 -f 3gp "
                "file:/w/output");
}

TEST(CommandLineTest, AmrIsAlwaysEightKilohertzMono) {
  EXPECT_NE(line({"-vcodec", "h263", "-acodec", "libopencore_amrnb", "-ar", "44100", "o.3gp"})
                .find("-ar 8000 -ac 1"),
            std::string::npos);
}

TEST(CommandLineTest, TranscodingJumpsToTheStart) {
  const std::string text = line({"-vcodec", "mpeg4", "-ss", "1.500000", "-t", "2.000000", "o.mp4"});
  EXPECT_NE(text.find(" -ss 1.500000 -i file:in.mov "), std::string::npos) << text;
  EXPECT_NE(text.find(" -t 2.000000 -f mp4"), std::string::npos) << text;
}

TEST(CommandLineTest, CopyingReadsFromTheBeginning) {
  for (const auto& codecs : std::vector<std::vector<const char*>>{
           {"-vcodec", "copy", "-acodec", "aac", "-ss", "1.5", "o.mp4"},
           {"-vcodec", "mpeg4", "-acodec", "copy", "-ss", "1.5", "o.mp4"}}) {
    const std::string text = line(codecs);
    EXPECT_NE(text.find(" -ss 1.5 -f mp4"), std::string::npos) << text;
    EXPECT_EQ(text.find("-ss 1.5 -i"), std::string::npos) << text;
  }
}

TEST(CommandLineTest, ContainersWithoutAnIndexAreReadFromTheBeginning) {
  MediaFacts stream = facts();
  stream.format = "mpegts";
  const std::string text = line({"-vcodec", "mpeg4", "-ss", "1.5", "o.mp4"}, stream);
  EXPECT_NE(text.find(" -ss 1.5 -f mp4"), std::string::npos) << text;
}

TEST(CommandLineTest, StartOfZeroIsNoStart) {
  EXPECT_EQ(line({"-vcodec", "mpeg4", "-ss", "0.000000", "-t", "5.000000", "o.mp4"}).find("-ss"),
            std::string::npos);
}

TEST(CommandLineTest, ACopiedStreamTakesNoEncoderOptions) {
  const std::string text = line({"-s", "qcif", "-vcodec", "copy", "-b", "691k", "-r", "25.000",
                                 "-acodec", "copy", "-ab", "64000", "-ar", "8000", "o.mp4"});
  EXPECT_NE(text.find("-c:v copy -c:a copy -f mp4"), std::string::npos) << text;
}

TEST(CommandLineTest, H263IsNotFasterThanItsClock) {
  MediaFacts fast = facts();
  fast.video->averageRate = {60, 1};
  EXPECT_NE(line({"-vcodec", "h263", "o.3gp"}, fast).find("-r 30000/1001"), std::string::npos);
  EXPECT_EQ(line({"-vcodec", "h263", "o.3gp"}).find("-r "), std::string::npos);
}

std::string filter(const std::vector<const char*>& words, const MediaFacts& about = facts()) {
  return videoFilter(options(words), *about.video);
}

TEST(VideoFilterTest, NothingToDo) {
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}), "");
}

TEST(VideoFilterTest, AskedSizeMadeEven) {
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "-s", "321x241", "o.mp4"}), "scale=w='320':h='240'");
}

TEST(VideoFilterTest, OddInputMadeEven) {
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, facts(321, 240)),
            "scale=w='max(2,2*trunc(iw/2))':h='max(2,2*trunc(ih/2))'");
}

TEST(VideoFilterTest, FullRangeIsNarrowedExceptForMotionJpeg) {
  MediaFacts full = facts();
  full.video->fullRange = true;
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, full),
            "scale=w='max(2,2*trunc(iw/2))':h='max(2,2*trunc(ih/2))':out_range=tv,format=yuv420p");
  EXPECT_EQ(filter({"-vcodec", "mjpeg", "o.avi"}, full), "");
}

TEST(VideoFilterTest, H263ChoosesItsSizeByBitrate) {
  const std::string qcif =
      "scale=w='max(2,2*trunc(min(176,144*dar)/2))':h='max(2,2*trunc(min(144,176/dar)/2))',"
      "setsar=1,pad=176:144:(ow-iw)/2:(oh-ih)/2";
  EXPECT_EQ(filter({"-vcodec", "h263", "-b", "299k", "o.3gp"}), qcif);
  EXPECT_EQ(filter({"-vcodec", "h263", "o.3gp"}), qcif);
  EXPECT_EQ(filter({"-vcodec", "h263", "-s", "320x240", "-b", "299k", "o.3gp"}), qcif);
  EXPECT_NE(filter({"-vcodec", "h263", "-b", "300k", "o.3gp"}).find("pad=352:288"),
            std::string::npos);
}

TEST(VideoFilterTest, H263KeepsALegalSize) {
  for (const char* size : {"128x96", "176x144", "352x288", "704x576", "1408x1152"}) {
    const std::string chain = filter({"-vcodec", "h263", "-s", size, "o.3gp"});
    const std::string width = std::string(size).substr(0, std::string(size).find('x'));
    EXPECT_TRUE(chain.starts_with("scale=w='" + width + "'")) << chain;
    EXPECT_EQ(chain.find("pad"), std::string::npos) << chain;
  }
}

}  // namespace
