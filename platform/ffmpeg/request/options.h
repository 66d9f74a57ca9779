// The old command line, parsed: exactly the options that the transcoding daemon uses.
#ifndef PLATFORM_FFMPEG_REQUEST_OPTIONS_H
#define PLATFORM_FFMPEG_REQUEST_OPTIONS_H

#include <cstdint>
#include <string>

struct PictureSize {
  int width = 0;
  int height = 0;
  bool operator==(const PictureSize&) const = default;
};

// Texts are kept as given where the encoder takes them unchanged; an empty text, a zero number or
// a zero size means that the option was not given.
struct Options {
  std::string input;
  std::string output;
  bool overwrite = false;

  PictureSize size;  // "auto" is as good as not given
  std::string videoCodec;
  std::string videoBitRate;  // text, with its k or M
  std::string frameRate;
  int pass = 0;  // 1 or 2
  std::string passLogPrefix;

  bool noAudio = false;
  std::string audioCodec;
  std::string audioBitRate;
  int sampleRateHz = 0;
  int channels = 0;

  int64_t maxSizeBytes = 0;
  std::string startOffset;  // seconds
  std::string clipLength;   // seconds
  std::string format;       // container; from the output's name when not given

  // Wishes that the command line has no words for.
  PictureSize mostSize;     // of the upright picture; a zero side is no limit
  bool startsFast = false;  // the index stands before the pictures
  bool isCompared = false;  // with its input, when it is made

  bool isProbe() const { return output.empty(); }
  bool copiesVideo() const { return videoCodec == "copy"; }
  bool copiesAudio() const { return audioCodec == "copy"; }
  // The first of two passes only analyses: its output is the null device.
  bool discardsOutput() const { return output == "/dev/null"; }
  // The file that this run, or the two-pass job that it is part of, is about.
  const std::string& target() const {
    return discardsOutput() && !passLogPrefix.empty() ? passLogPrefix : output;
  }
  int64_t startOffsetMs() const;
  int64_t clipLengthMs() const;
  // 0 when not given.
  int64_t videoBitsPerSecond() const;
  int64_t audioBitsPerSecond() const;
};

// Parses argv[1..]. On success stores everything in *options and returns true; on failure stores
// one clear line in *error and returns false, *options being unspecified.
bool parseOptions(int argc, const char* const* argv, Options* options, std::string* error);

#endif
