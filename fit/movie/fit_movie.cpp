#include "fit/movie/fit_movie.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "fit/movie/work_place.h"
#include "platform/ffmpeg/files/work_directory.h"
#include "platform/ffmpeg/job/transcode.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "platform/ffmpeg/process/real_ffmpeg.h"
#include "platform/ffmpeg/process/sandbox.h"
#include "platform/ffmpeg/request/options.h"

namespace {

// The same file in each process that has it for its standard input, with an offset of its own.
constexpr char kInput[] = "/proc/self/fd/0";

bool fail(const char* name, const std::string& message, FitFailure* failure) {
  *failure = {name, message, 0};
  return false;
}

void replaceAll(const std::string& from, const std::string& to, std::string* text) {
  for (size_t at = text->find(from); at != std::string::npos; at = text->find(from, at)) {
    text->replace(at, from.size(), to);
    at += to.size();
  }
}

// The last line of what the encode room tells, without our own names in it.
std::string plainWords(std::string words) {
  words.erase(0, words.rfind('\n') + 1);
  replaceAll(std::string("file:") + kInput, "the input", &words);
  replaceAll(kInput, "the input", &words);
  constexpr std::string_view kSubject = "the input: ";
  if (words.starts_with(kSubject)) words.erase(0, kSubject.size());
  return words;
}

// libavformat tells all the names that a container's reader goes by.
std::string containerName(const std::string& names) {
  if (names.starts_with("mov,")) return "mp4";
  return names.substr(0, names.find(','));
}

MovieFacts movieFacts(const MediaFacts& media) {
  MovieFacts facts;
  facts.bytes = media.sizeBytes;
  facts.width = media.video->width;
  facts.height = media.video->height;
  if (media.video->quarterTurns % 2 != 0) std::swap(facts.width, facts.height);
  facts.milliseconds = media.durationUs / 1000;
  facts.format = containerName(media.format);
  facts.videoCodec = media.video->codec;
  if (!media.audio.empty()) facts.audioCodec = media.audio[0].codec;
  return facts;
}

bool readInput(const ReadLimits& limits, MovieFacts* facts, FitFailure* failure) {
  struct stat status {};
  if (access(kInput, R_OK) != 0 || fstat(STDIN_FILENO, &status) != 0) {
    return fail("CannotRead", std::string("The input cannot be read: ") + strerror(errno), failure);
  }
  if (status.st_size > kMaxInputBytes) {
    return fail("TooLarge", "The input is over 4 GiB", failure);
  }
  MediaFacts media;
  std::string error;
  if (!probeMovie(kInput, limits, &media, &error)) {
    return fail("NotAMovie", "The input is no movie: " + plainWords(error), failure);
  }
  if (!media.video || media.video->width <= 0 || media.video->height <= 0) {
    return fail("NotAMovie", "There are no pictures in the input", failure);
  }
  if (int64_t{media.video->width} * media.video->height > kMaxPixels) {
    return fail("TooLarge", "The pictures of the input are too large", failure);
  }
  *facts = movieFacts(media);
  return true;
}

Options optionsFor(const MovieRequest& request) {
  Options options;
  options.input = kInput;
  options.maxSizeBytes = request.maxBytes;
  options.mostSize = {request.maxWidth, request.maxHeight};
  options.startsFast = true;
  options.isCompared = true;
  options.format = "mp4";
  options.audioCodec = "aac";
  switch (request.format) {
    case MovieFormat::Mpeg4:
      options.videoCodec = "mpeg4";
      break;
    case MovieFormat::H263:
      options.videoCodec = "h263";
      options.audioCodec = "libopencore_amrnb";
      options.format = "3gp";
      break;
    default:
      options.videoCodec = "libx264";
  }
  return options;
}

FitFailure failureOf(const Failure& failure, const MovieRequest& request) {
  const auto tells = [&](const char* words) {
    return failure.words.find(words) != std::string::npos;
  };
  if (failure.smallestBytes > 0) {
    return {"LimitTooSmall",
            "The whole movie cannot be had in " + std::to_string(request.maxBytes) + " bytes; " +
                std::to_string(failure.smallestBytes) + " is the smallest",
            failure.smallestBytes};
  }
  if (tells("Unknown encoder")) {
    return {"NotSupported", "The ffmpeg of this machine lacks an encoder for the format", 0};
  }
  if (tells("No space left")) {
    return {"CannotWrite", "There is no room on the disk to make the movie", 0};
  }
  return {"Damaged", "The movie cannot be made: " + plainWords(failure.words), 0};
}

// What came out is looked at once more, as a stranger's file is.
bool takeResult(const std::string& path, const MovieRequest& request, FittedMovie* movie,
                FitFailure* failure) {
  MediaFacts media;
  std::string error;
  if (!probeMovie(path, kThoroughProbe, &media, &error) || !media.video ||
      media.sizeBytes > request.maxBytes) {
    return fail("Damaged", "The movie cannot be made: its result cannot be read", failure);
  }
  movie->facts = movieFacts(media);
  movie->file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  return movie->file >= 0 || fail("CannotRead", strerror(errno), failure);
}

}  // namespace

bool fitMovie(const MovieRequest& request, const std::function<void(double)>& onProgress,
              FittedMovie* movie, FitFailure* failure) {
  const std::string program = findRealFfmpeg();
  if (program.empty()) {
    return fail("NotSupported", "There is no ffmpeg on this machine", failure);
  }
  std::string error;
  const std::string place = workPlace(&error);
  const auto work = place.empty() ? nullptr : WorkDirectory::create(place + "/movie", &error);
  if (!work) return fail("CannotWrite", "The movie cannot be made: " + error, failure);
  Options options = optionsFor(request);
  options.output = work->file("result." + options.format);
  Sandbox sandbox = sandboxFor(options, program);
  sandbox.mayChange(place);
  if (!sandbox.enter()) return fail("CannotRead", "The cage cannot be entered", failure);

  MovieFacts source;
  if (!readInput(kThoroughProbe, &source, failure)) return false;
  Transcode job(options, program, onProgress);
  Failure reason;
  if (!job.run(&reason)) {
    *failure = failureOf(reason, request);
    return false;
  }
  movie->encodes = job.encodes();
  movie->similarity = job.likeness();
  return takeResult(options.output, request, movie, failure);
}

bool inspectMovie(MovieFacts* facts, FitFailure* failure) {
  Sandbox sandbox;
  sandbox.maySupervise();
  sandbox.mayUseSystem();
  sandbox.mayRead(kInput);
  if (!sandbox.enter()) return fail("CannotRead", "The cage cannot be entered", failure);
  return readInput(kQuickProbe, facts, failure);
}
