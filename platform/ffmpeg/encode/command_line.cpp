#include "platform/ffmpeg/encode/command_line.h"

#include <cmath>
#include <initializer_list>

#include "platform/ffmpeg/encode/video_filter.h"
#include "platform/ffmpeg/plan/fit_plan.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/media_input.h"

namespace {

using Kind = Attempt::Kind;

// Key frames cost much; players of clips that fit a message do without more of them.
constexpr char kKeyFrameDistance[] = "250";
constexpr int kFinestQp = 14;  // more bits would not show
constexpr int64_t kSmallPixels = 800 * 600;

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

std::string decimal(double value) {
  const int64_t milliseconds = std::llround(value * 1000);
  const std::string digits = std::to_string(1000 + milliseconds % 1000);
  return std::to_string(milliseconds / 1000) + "." + digits.substr(1);
}

std::string text(Ratio rate) {
  return std::to_string(rate.num) + (rate.den == 1 ? "" : "/" + std::to_string(rate.den));
}

bool copiesVideo(const Options& options, const Attempt& attempt) {
  return attempt.kind == Kind::Copy || options.copiesVideo();
}

bool copiesAudio(const Options& options, const Attempt& attempt) {
  return attempt.kind == Kind::Copy || options.copiesAudio();
}

// The old program decoded up to the start and threw away what came before. Jumping there gives the
// same frames when they are decoded anyway and the container knows where they are. A stream copied
// after a jump would begin with the key frame before the start.
bool jumpsToStart(const Options& options, const MediaFacts& facts, const Attempt& attempt) {
  return canJump(facts) && !copiesVideo(options, attempt) && !copiesAudio(options, attempt);
}

// Empty leaves the choice to the container.
std::string audioCodecName(const Options& options) {
  return options.audioCodec == "libfaac" ? "aac" : options.audioCodec;
}

void addHead(const EncodePaths& paths, CommandLine* line) {
  line->add({paths.program, "-nostdin", "-hide_banner", "-nostats", "-loglevel", "error"});
  line->add({"-progress", "pipe:1", "-stats_period", "0.25", "-y"});
  line->add({"-filter_threads", std::to_string(paths.threads)});
}

void addInput(const Options& options, const EncodePaths& paths, CommandLine* line) {
  line->add({"-threads", std::to_string(paths.threads)});
  line->add({"-protocol_whitelist", kInputProtocols, "-format_whitelist", kInputFormats,
             "-max_pixels", std::to_string(kMaxPixels), "-i", "file:" + options.input});
}

void addStart(double seconds, CommandLine* line) {
  line->addIf(seconds > 0, "-ss", decimal(seconds));
}

// How the pictures are to be coded, but for the bitrate.
void addPictures(const Options& options, const VideoFacts& video, const Rung& picture,
                 bool isScarce, const EncodePaths& paths, CommandLine* line) {
  line->addIf(!options.videoCodec.empty(), "-c:v", options.videoCodec);
  line->add({"-r", text(picture.rate)});
  const std::string filter = videoFilter(options, video, picture.size, paths.mapsTones);
  line->addIf(!filter.empty(), "-vf", filter);
  line->add({"-fps_mode", keepsTimes(options) ? "vfr" : "cfr"});
  if (isH264(options)) {
    // What every receiver plays; a slower preset costs several times the time for no better SSIM.
    line->add({"-g", kKeyFrameDistance, "-preset", "veryfast", "-pix_fmt", "yuv420p"});
    line->add({"-x264-params", "ratetol=0.01"});
    line->addIf(options.videoBitRate.empty(), "-qmin", std::to_string(kFinestQp));
  } else if (hasQuantiser(options)) {
    line->add({"-g", kKeyFrameDistance});
    // Deciding each block by what it costs takes up to half as much time again; without it still
    // pictures are coded again and again, in up to eight times the bytes.
    if (isScarce) line->add({"-mbd", "rd"});
  }
  // Threads cut a picture into slices, which costs bits and makes its size the machine's.
  const bool isSmall =
      hasQuantiser(options) && !isH264(options) && picture.pixels() <= kSmallPixels;
  line->add({"-threads:v", std::to_string(isSmall ? 1 : paths.threads)});
}

// x264's constant quality has its rate control's ways with bits, which a plain quantiser lacks:
// only the coarsest is one.
void addQuantiser(const Options& options, int quantiser, CommandLine* line) {
  if (isH264(options)) {
    const bool isFloor = quantiser >= coarsestQuantiser(options);
    line->add({isFloor ? "-qp" : "-crf", std::to_string(qpOfQuantiser(quantiser))});
  } else {
    line->add({"-qscale:v", std::to_string(quantiser)});
  }
}

void addVideo(const Options& options, const MediaFacts& facts, const Attempt& attempt,
              const EncodePaths& paths, CommandLine* line) {
  if (copiesVideo(options, attempt)) {
    line->add({"-c:v", "copy"});
    return;
  }
  if (!facts.video) {
    line->addIf(!options.videoCodec.empty(), "-c:v", options.videoCodec);
    return;
  }
  addPictures(options, *facts.video, attempt.picture, !attempt.hasPlenty(), paths, line);
  line->addIf(attempt.videoBitsPerSecond > 0, "-b:v", std::to_string(attempt.videoBitsPerSecond));
  line->addIf(attempt.toleranceBits > 0 && hasQuantiser(options) && !isH264(options), "-bt",
              std::to_string(attempt.toleranceBits));
  if (attempt.kind == Kind::Constant) addQuantiser(options, attempt.quantiser, line);
  if (attempt.kind == Kind::First || attempt.kind == Kind::Second) {
    line->add(
        {"-pass", attempt.kind == Kind::First ? "1" : "2", "-passlogfile", paths.passLogPrefix});
  }
}

void addAudio(const Options& options, const Attempt& attempt, CommandLine* line) {
  if (options.noAudio) {
    line->add({"-an"});
    return;
  }
  if (copiesAudio(options, attempt)) {
    line->add({"-c:a", "copy"});
    return;
  }
  const std::string codec = audioCodecName(options);
  line->addIf(!codec.empty(), "-c:a", codec);
  const SoundChoice& sound = attempt.sound;
  line->addIf(sound.bitsPerSecond > 0, "-b:a", std::to_string(sound.bitsPerSecond));
  line->addIf(sound.sampleRateHz > 0, "-ar", std::to_string(sound.sampleRateHz));
  line->addIf(sound.channels > 0, "-ac", std::to_string(sound.channels));
  // Silence where the source's sound has gaps: it stays with the pictures.
  line->add({"-af", "aresample=async=1"});
}

}  // namespace

bool canJump(const MediaFacts& facts) {
  return facts.format.starts_with("mov,") || facts.format.starts_with("matroska");
}

std::vector<std::string> commandLine(const Options& options, const MediaFacts& facts,
                                     const Attempt& attempt, const EncodePaths& paths) {
  CommandLine line;
  const bool jumps = jumpsToStart(options, facts, attempt);
  const double start = static_cast<double>(options.startOffsetMs()) / 1000;
  addHead(paths, &line);
  if (jumps) addStart(start, &line);
  addInput(options, paths, &line);
  line.add({"-map", "0:V:0?"});
  line.addIf(!options.noAudio, "-map", "0:a:0?");
  line.add({"-sn", "-dn", "-map_metadata", "-1", "-map_chapters", "-1"});
  addVideo(options, facts, attempt, paths, &line);
  addAudio(options, attempt, &line);
  if (!jumps) addStart(start, &line);
  line.addIf(options.clipLengthMs() > 0, "-t", options.clipLength);
  if (options.startsFast) line.add({"-movflags", "+faststart"});
  const bool isFile = !paths.output.starts_with("/dev/");
  line.add({"-f", options.format, (isFile ? "file:" : "") + paths.output});
  return line.words;
}

std::vector<std::string> sampleLine(const Options& options, const MediaFacts& facts,
                                    const std::vector<SamplePart>& parts,
                                    const std::array<Rung, 2>& rungs, const EncodePaths& paths) {
  CommandLine line;
  const double start = static_cast<double>(options.startOffsetMs()) / 1000;
  addHead(paths, &line);
  for (const SamplePart& part : parts) {
    addStart(start + part.start, &line);
    line.add({"-t", decimal(part.seconds)});
    addInput(options, paths, &line);
  }
  for (size_t part = 0; part < parts.size(); ++part) {
    for (const Rung& rung : rungs) {
      for (const int quantiser : kSampleQuantisers) {
        line.add({"-map", std::to_string(part) + ":V:0", "-an", "-sn", "-dn"});
        addPictures(options, *facts.video, rung, true, paths, &line);
        addQuantiser(options, quantiser, &line);
        line.add({"-pass", "1", "-passlogfile", paths.passLogPrefix, "-f", "null", "/dev/null"});
      }
    }
  }
  return line.words;
}
