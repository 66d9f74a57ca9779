#include "platform/ffmpeg/encode/command_line.h"

#include <initializer_list>

#include "platform/ffmpeg/encode/video_filter.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/media_input.h"

namespace {

constexpr double kH263MaxRate = 30000.0 / 1001;

class CommandLine {
 public:
  void add(std::initializer_list<std::string> items) {
    words.insert(words.end(), items.begin(), items.end());
  }
  void addIf(bool condition, const std::string& option, const std::string& value) {
    if (condition) add({option, value});
  }
  std::vector<std::string> words;
};

// The old program decoded up to the start and threw away what came before. Jumping there gives the
// same frames when they are decoded anyway and the container knows where they are. A stream copied
// after a jump would begin with the key frame before the start.
bool jumpsToStart(const Options& options, const MediaFacts& facts) {
  const bool hasIndex = facts.format.starts_with("mov,") || facts.format.starts_with("matroska");
  return hasIndex && !options.copiesVideo() && !options.copiesAudio();
}

// Empty leaves the choice to the container.
std::string audioCodecName(const Options& options) {
  return options.audioCodec == "libfaac" ? "aac" : options.audioCodec;
}

void addInput(const Options& options, const MediaFacts& facts, CommandLine* line) {
  line->add({"-protocol_whitelist", kInputProtocols, "-format_whitelist", kInputFormats,
             "-max_pixels", std::to_string(kMaxPixels)});
  line->addIf(options.startOffsetMs() > 0 && jumpsToStart(options, facts), "-ss",
              options.startOffset);
  line->add({"-i", "file:" + options.input});
}

std::string frameRate(const Options& options, const VideoFacts& video) {
  // H.263 counts time in a clock of 29.97 Hz.
  const bool tooFast = options.videoCodec == "h263" && video.averageRate.value() > kH263MaxRate;
  return options.frameRate.empty() && tooFast ? "30000/1001" : options.frameRate;
}

void addVideo(const Options& options, const MediaFacts& facts, const EncodePaths& paths,
              CommandLine* line) {
  line->addIf(!options.videoCodec.empty(), "-c:v", options.videoCodec);
  if (options.copiesVideo() || !facts.video) return;
  line->addIf(!options.videoBitRate.empty(), "-b:v", options.videoBitRate);
  const std::string rate = frameRate(options, *facts.video);
  line->addIf(!rate.empty(), "-r", rate);
  const std::string filter = videoFilter(options, *facts.video);
  line->addIf(!filter.empty(), "-vf", filter);
  const bool keepsTimes = options.format == "mp4" || options.format == "mov";
  line->add({"-fps_mode", keepsTimes ? "vfr" : "cfr"});
  if (options.pass != 0) {
    line->add({"-pass", std::to_string(options.pass), "-passlogfile", paths.passLogPrefix});
  }
}

void addAudio(const Options& options, CommandLine* line) {
  const std::string codec = audioCodecName(options);
  line->addIf(!codec.empty(), "-c:a", codec);
  if (options.copiesAudio()) return;
  const bool isAmr = codec == "libopencore_amrnb";  // speech at 8 kHz in one channel, and no other
  const int sampleRate = isAmr ? 8000 : options.sampleRateHz;
  const int channels = isAmr ? 1 : options.channels;
  line->addIf(!options.audioBitRate.empty(), "-b:a", options.audioBitRate);
  line->addIf(sampleRate > 0, "-ar", std::to_string(sampleRate));
  line->addIf(channels > 0, "-ac", std::to_string(channels));
}

}  // namespace

std::vector<std::string> commandLine(const Options& options, const MediaFacts& facts,
                                     const EncodePaths& paths) {
  CommandLine line;
  line.add({paths.program, "-nostdin", "-hide_banner", "-nostats", "-loglevel", "error"});
  line.add({"-progress", "pipe:1", "-stats_period", "0.25", "-y"});
  addInput(options, facts, &line);

  line.add({"-map", "0:V:0?"});
  line.addIf(!options.noAudio, "-map", "0:a:0?");
  line.add({"-sn", "-dn", "-map_metadata", "-1", "-map_chapters", "-1"});
  addVideo(options, facts, paths, &line);
  if (options.noAudio) {
    line.add({"-an"});
  } else {
    addAudio(options, &line);
  }
  line.addIf(options.startOffsetMs() > 0 && !jumpsToStart(options, facts), "-ss",
             options.startOffset);
  line.addIf(options.clipLengthMs() > 0, "-t", options.clipLength);
  line.addIf(options.maxSizeBytes > 0, "-fs", std::to_string(options.maxSizeBytes));
  line.add(
      {"-f", options.format, options.discardsOutput() ? paths.output : "file:" + paths.output});
  return line.words;
}
