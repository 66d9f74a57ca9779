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
    "-stats_period 0.25 -y -filter_threads 1 -threads 1 -protocol_whitelist file -format_whitelist "
    "FORMATS "
    "-max_pixels 36000000 -i file:in.mov ";
constexpr char kClean[] = "-sn -dn -map_metadata -1 -map_chapters -1 ";

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + (word.starts_with("mov,") ? "FORMATS" : word);
  }
  return text;
}

// What the plan would begin with, at plain figures.
Attempt attempt(Attempt::Kind kind = Attempt::Kind::First) {
  Attempt attempt;
  attempt.kind = kind;
  attempt.picture = {{320, 240}, {25, 1}, 25};
  attempt.videoBitsPerSecond = 100000;
  attempt.sound = {24000, 22050, 1};
  return attempt;
}

// The whole line, spaces between its words, the long list of formats by its name.
std::string line(const std::vector<const char*>& words, const Attempt& wanted = attempt(),
                 const MediaFacts& about = facts()) {
  const Options asked = options(words);
  return joined(commandLine(
      asked, about, wanted,
      {"/usr/bin/ffmpeg", asked.discardsOutput() ? "/dev/null" : "/w/output", "/w/pass"}));
}

constexpr char kScaled[] = "-r 25 -vf scale=320:240:flags=bicubic,setsar=1 ";

TEST(CommandLineTest, AFirstPassLeavesALogAndAFile) {
  Attempt first = attempt();
  first.toleranceBits = 50000;
  EXPECT_EQ(line({"-vcodec", "mpeg4", "-b", "691k", "-acodec", "libfaac", "-ab", "76799", "o.mp4"},
                 first),
            std::string(kHead) + "-map 0:V:0? -map 0:a:0? " + kClean + "-c:v mpeg4 " + kScaled +
                "-fps_mode vfr -g 250 -mbd rd -threads:v 1 -b:v 100000 -bt 50000 -pass 1 "
                "-passlogfile /w/pass -c:a aac -b:a 24000 -ar 22050 -ac 1 -af aresample=async=1 "
                "-f mp4 file:/w/output");
}

TEST(CommandLineTest, NoTimeIsSpentWhereBitsArePlenty) {
  Attempt plenty = attempt();
  plenty.picture.framesPerSecond = 25;
  const auto bitsPerSecond = static_cast<int64_t>(kPlentyPerPixel * 320 * 240 * 25);
  plenty.videoBitsPerSecond = bitsPerSecond;
  EXPECT_EQ(line({"-vcodec", "mpeg4", "o.mp4"}, plenty).find("-mbd"), std::string::npos);
  plenty.videoBitsPerSecond = bitsPerSecond - 1;
  EXPECT_NE(line({"-vcodec", "mpeg4", "o.mp4"}, plenty).find("-mbd rd"), std::string::npos);
}

TEST(CommandLineTest, TheAnalysisOfTwoRunsDiscardsItsOutput) {
  EXPECT_EQ(
      line({"-vcodec", "mpeg4", "-b", "691k", "-pass", "1", "-passlogfile", "o.mp4", "-an", "-f",
            "mp4", "/dev/null"}),
      std::string(kHead) + "-map 0:V:0? " + kClean + "-c:v mpeg4 " + kScaled +
          "-fps_mode vfr -g 250 -mbd rd -threads:v 1 -b:v 100000 -pass 1 -passlogfile /w/pass -an "
          "-f mp4 /dev/null");
}

TEST(CommandLineTest, ASizeLimitIsNotTheEncoders) {
  const std::string text =
      line({"-vcodec", "mpeg4", "-fs", "949999", "o.mp4"}, attempt(Attempt::Kind::Second));
  EXPECT_NE(text.find(" -pass 2 -passlogfile /w/pass "), std::string::npos) << text;
  EXPECT_EQ(text.find("-fs"), std::string::npos) << text;
}

TEST(CommandLineTest, AConstantQuantiserKnowsNoBitrate) {
  Attempt coarse = attempt(Attempt::Kind::Constant);
  coarse.quantiser = 31;
  coarse.videoBitsPerSecond = 0;
  const std::string text = line({"-vcodec", "mpeg4", "-b", "40k", "o.mp4"}, coarse);
  EXPECT_NE(text.find(" -qscale:v 31 "), std::string::npos) << text;
  EXPECT_EQ(text.find("-b:v"), std::string::npos) << text;
  EXPECT_EQ(text.find("-pass"), std::string::npos) << text;
}

TEST(CommandLineTest, H264HasItsOwnWords) {
  const std::string coder =
      "-fps_mode vfr -g 250 -preset veryfast -pix_fmt yuv420p -x264-params "
      "ratetol=0.01 -qmin 14 -threads:v 1 ";
  Attempt wanted = attempt();
  wanted.toleranceBits = 50000;
  EXPECT_NE(line({"-vcodec", "libx264", "o.mp4"}, wanted).find(coder + "-b:v 100000 -pass 1"),
            std::string::npos);
  wanted = attempt(Attempt::Kind::Constant);
  wanted.videoBitsPerSecond = 0;
  for (const auto& [quantiser, words] : {std::pair{8, "-crf 28 -c:a"}, {113, "-qp 51 -c:a"}}) {
    wanted.quantiser = quantiser;
    EXPECT_NE(line({"-vcodec", "libx264", "-acodec", "aac", "o.mp4"}, wanted).find(coder + words),
              std::string::npos);
  }
}

TEST(CommandLineTest, CopiedAsItIs) {
  EXPECT_EQ(line({"-vcodec", "mpeg4", "-b", "691k", "-acodec", "libfaac", "-ab", "76799", "o.mp4"},
                 attempt(Attempt::Kind::Copy)),
            std::string(kHead) + "-map 0:V:0? -map 0:a:0? " + kClean +
                "-c:v copy -c:a copy -f mp4 file:/w/output");
}

TEST(CommandLineTest, SamplesAreLoggedQuantiserBySizeByPart) {
  const Rung large = {{352, 288}, {15, 1}, 15};
  const Rung small = {{176, 144}, {15, 1}, 15};
  const std::string text =
      joined(sampleLine(options({"-vcodec", "h263", "-ss", "1.5", "o.3gp"}), facts(),
                        {{2, 0.5}, {4, 0.5}}, {large, small}, {"/usr/bin/ffmpeg", "", "/w/s"}));
  EXPECT_NE(text.find("-ss 3.500 -t 0.500 -threads 1 -protocol_whitelist"), std::string::npos)
      << text;
  EXPECT_NE(text.find("-ss 5.500 -t 0.500 -threads 1 -protocol_whitelist"), std::string::npos)
      << text;
  std::string order;
  for (size_t at = text.find("-map "); at != std::string::npos; at = text.find("-map ", at + 1)) {
    const std::string one = text.substr(at, text.find("/dev/null", at) - at);
    order += one.substr(5, 1) + (one.find("pad=352") != std::string::npos ? "L" : "S") +
             one.substr(one.find("-qscale:v ") + 10, 2) + " ";
  }
  EXPECT_EQ(order, "0L8  0L24 0S8  0S24 1L8  1L24 1S8  1S24 ");
}

TEST(CommandLineTest, TranscodingJumpsToTheStart) {
  const std::string text = line({"-vcodec", "mpeg4", "-ss", "1.500000", "-t", "2.000000", "o.mp4"});
  EXPECT_NE(text.find(" -ss 1.500 -threads 1 -protocol_whitelist "), std::string::npos) << text;
  EXPECT_NE(text.find(" -t 2.000000 -f mp4"), std::string::npos) << text;
}

TEST(CommandLineTest, CopyingReadsFromTheBeginning) {
  for (const auto& codecs : std::vector<std::vector<const char*>>{
           {"-vcodec", "copy", "-acodec", "aac", "-ss", "1.5", "o.mp4"},
           {"-vcodec", "mpeg4", "-acodec", "copy", "-ss", "1.5", "o.mp4"}}) {
    const std::string text = line(codecs);
    EXPECT_NE(text.find(" -ss 1.500 -f mp4"), std::string::npos) << text;
    EXPECT_EQ(text.find("-ss 1.500 -protocol"), std::string::npos) << text;
  }
}

TEST(CommandLineTest, ContainersWithoutAnIndexAreReadFromTheBeginning) {
  MediaFacts stream = facts();
  stream.format = "mpegts";
  const std::string text = line({"-vcodec", "mpeg4", "-ss", "1.5", "o.mp4"}, attempt(), stream);
  EXPECT_NE(text.find(" -ss 1.500 -f mp4"), std::string::npos) << text;
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

std::string filter(const std::vector<const char*>& words, PictureSize size,
                   const MediaFacts& about = facts(), bool mapsTones = true) {
  return videoFilter(options(words), *about.video, size, mapsTones);
}

TEST(VideoFilterTest, NothingToDo) {
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {640, 480}), "");
}

TEST(VideoFilterTest, AnotherShapeIsFilledUpWithBlack) {
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {320, 320}),
            "scale=320:240:flags=bicubic,setsar=1,pad=320:320:(ow-iw)/2:(oh-ih)/2");
  EXPECT_EQ(filter({"-vcodec", "h263", "o.3gp"}, {176, 144}),
            "scale=176:132:flags=bicubic,setsar=1,pad=176:144:(ow-iw)/2:(oh-ih)/2");
}

TEST(VideoFilterTest, RotatedAndOblongPicturesKeepTheirShape) {
  MediaFacts turned = facts();
  turned.video->quarterTurns = 1;
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {320, 240}, turned),
            "scale=180:240:flags=bicubic,setsar=1,pad=320:240:(ow-iw)/2:(oh-ih)/2");
  MediaFacts oblong = facts(720, 576);
  oblong.video->pixelAspect = {16, 15};
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {768, 576}, oblong),
            "scale=768:576:flags=bicubic,setsar=1");
}

TEST(VideoFilterTest, FullRangeIsNarrowedExceptForMotionJpeg) {
  MediaFacts full = facts();
  full.video->fullRange = true;
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {640, 480}, full),
            "scale=640:480:flags=bicubic:out_range=tv,setsar=1,format=yuv420p");
  EXPECT_EQ(filter({"-vcodec", "mjpeg", "o.avi"}, {640, 480}, full), "");
}

TEST(VideoFilterTest, TheMatrixFollowsTheSize) {
  MediaFacts large = facts(1920, 1080);
  large.video->colorMatrix = "bt709";
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {1920, 1080}, large), "");
  EXPECT_EQ(filter({"-vcodec", "mpeg4", "o.mp4"}, {640, 360}, large),
            "scale=640:360:flags=bicubic:in_color_matrix=bt709:out_color_matrix=bt601,setsar=1,"
            "format=yuv420p");
  large.video->colorMatrix = "";  // a player would take it for the same
  EXPECT_NE(filter({"-vcodec", "mpeg4", "o.mp4"}, {640, 360}, large).find("=bt709"),
            std::string::npos);
}

TEST(VideoFilterTest, HighRangeIsMappedWhereItCanBe) {
  MediaFacts high = facts(1920, 1080);
  high.video->colorMatrix = "bt2020nc";
  high.video->colorTransfer = "smpte2084";
  EXPECT_NE(filter({"-vcodec", "mpeg4", "o.mp4"}, {640, 360}, high).find("tonemap=hable"),
            std::string::npos);
  const std::string plain = filter({"-vcodec", "mpeg4", "o.mp4"}, {640, 360}, high, false);
  EXPECT_EQ(plain.find("tonemap"), std::string::npos);
  EXPECT_NE(plain.find("in_color_matrix=bt2020"), std::string::npos);
}

}  // namespace
