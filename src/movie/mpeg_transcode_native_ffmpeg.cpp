#include "src/movie/mpeg_transcode_native_ffmpeg.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>

#include "src/movie/extended_arithmetic.h"

namespace {

using Line = std::vector<std::string>;

void add(Line* line, std::initializer_list<std::string> items) {
  line->insert(line->end(), items);
}

// printf's "%.*f" of the "C" locale.
std::string fixed(double number, int fraction) {
  char text[64];
  const auto end =
      std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, fraction).ptr;
  return {text, end};
}

std::string codecName(const std::string& audioEncoder) {
  if (audioEncoder == "aac") return "libfaac";
  if (audioEncoder == "amrnb") return "libopencore_amrnb";
  return audioEncoder;
}

}  // namespace

void MpegTranscodeNativeFFMpeg::setPasses(int count) {
  if (count == 1 || count == 2) passes = count;
}

int MpegTranscodeNativeFFMpeg::getPasses() {
  return passes;
}

bool MpegTranscodeNativeFFMpeg::prepareParameters() {
  if (!MpegTranscodeNative::prepareParameters()) return false;
  // Of 1000000 bytes, 949999 remain.
  maxOutputSize = extendedProduct(maxOutputSize, 0.95);
  return true;
}

int MpegTranscodeNativeFFMpeg::exec(int pass) {
  if (pass < 1 || pass > 2 || (passes == 1 && pass == 2)) return -1;

  const Line line = commandLine(pass);
  std::vector<const char*> argv;
  for (const std::string& item : line) {
    argv.push_back(item.c_str());
  }
  argv.push_back(nullptr);

  dumpCmd("ffmpeg", argv.data());
  fflush(stdout);  // what is buffered would go with the process image
  return execvp("ffmpeg", const_cast<char* const*>(argv.data()));
}

std::vector<std::string> MpegTranscodeNativeFFMpeg::commandLine(int pass) const {
  const bool measuresOnly = passes == 2 && pass == 2;
  Line line = {"ffmpeg", "-i", inFile, "-y"};
  addVideo(&line);
  if (passes == 2) add(&line, {"-pass", measuresOnly ? "1" : "2", "-passlogfile", outFile});
  if (measuresOnly) {
    add(&line, {"-an"});
  } else {
    addAudio(&line);
    if (maxOutputSize > 0) add(&line, {"-fs", std::to_string(maxOutputSize)});
  }
  addClip(&line);
  if (measuresOnly) {
    add(&line, {"-f", outputExtension.substr(1), "/dev/null"});
  } else {
    add(&line, {outFile});
  }
  return line;
}

void MpegTranscodeNativeFFMpeg::addVideo(Line* line) const {
  if (!picSize.empty()) add(line, {"-s", picSize, "-sws_flags", "fast_bilinear"});
  add(line, {"-vcodec", videoEncoder});
  if (bitrateVideo != 0) add(line, {"-b", std::to_string(bitrateVideo / 1000) + "k"});
  const float frameRate = outputFrameRate();
  if (frameRate != 0) add(line, {"-r", fixed(frameRate, 3)});
}

void MpegTranscodeNativeFFMpeg::addAudio(Line* line) const {
  add(line, {"-acodec", codecName(audioEncoder)});
  if (bitrateAudio != 0) add(line, {"-ab", std::to_string(bitrateAudio)});
  if (audioEncoder == "amrnb") {
    add(line, {"-ar", "8000", "-ac", "1"});
  } else if (audioSamplingRate != 0) {
    add(line, {"-ar", std::to_string(audioSamplingRate), "-ac", "1"});
  }
}

void MpegTranscodeNativeFFMpeg::addClip(Line* line) const {
  if (startOffsetMs > 0 || (startOffsetMs == 0 && clipLengthMs > 0)) {
    add(line, {"-ss", fixed(startOffsetMs / 1000.0, 6)});
  }
  if (clipLengthMs > 0) add(line, {"-t", fixed(clipLengthMs / 1000.0, 6)});
}

// The rate to ask for, 0 to leave it to ffmpeg. Where time stamps run finer than frames, ffmpeg
// would take the finer rate.
float MpegTranscodeNativeFFMpeg::outputFrameRate() const {
  if (videoFrameRate != 0) return videoFrameRate;
  const bool isFiner = mpegInfo != nullptr && mpegInfo->tbr > mpegInfo->frameRate;
  return isFiner ? mpegInfo->frameRate : 0;
}

void MpegTranscodeNativeFFMpeg::cleanup() {
  if (passes != 2) return;
  for (int number = 0; number <= 9; number++) {
    unlink((outFile + "-" + std::to_string(number) + ".log").c_str());
  }
}
