#include "platform/ffmpeg/job/transcode.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/ffmpeg/encode/command_line.h"
#include "platform/ffmpeg/encode/output_check.h"
#include "platform/ffmpeg/files/paths.h"
#include "platform/ffmpeg/files/progress_file.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "platform/ffmpeg/process/encode_slots.h"
#include "platform/ffmpeg/process/stop_signals.h"

namespace {

namespace fs = std::filesystem;

// Names inside the work directory. Today's encoders write "pass-0.log"; some add a second file.
constexpr char kOutputName[] = "output";
constexpr char kPassName[] = "pass";
constexpr char kPassLog[] = "pass-0.log";
constexpr char kPassTree[] = "pass-0.log.mbtree";

// The caller removes PREFIX-0.log to PREFIX-9.log, so the second file must be among those.
std::string loggedName(const std::string& prefix, const std::string& name) {
  return prefix + (name == kPassLog ? "-0.log" : "-1.log");
}

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return fs::equivalent(one, other, ignored);
}

// What an encoder was seen to take: pictures that are kept for reference and in each thread, the
// threads' own, and the program itself.
int64_t memoryFor(const MediaFacts& facts) {
  constexpr int64_t kMega = 1 << 20;
  const int64_t threads = std::max(1U, std::thread::hardware_concurrency());
  const int64_t pixels = facts.video ? int64_t{facts.video->width} * facts.video->height : 0;
  return 40 * kMega + threads * 10 * kMega + pixels * 3 / 2 * (16 + 3 * threads);
}

// So that a power cut leaves the old file or the new one, and not an empty one.
void syncFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

// A test shortens it.
std::chrono::milliseconds stallLimit() {
  const char* text = getenv("TARN_FFMPEG_STALL_MS");
  const long milliseconds = text ? strtol(text, nullptr, 10) : 0;
  return std::chrono::milliseconds(milliseconds > 0 ? milliseconds : 60'000);
}

}  // namespace

Sandbox sandboxFor(const Options& options, const std::string& program) {
  Sandbox sandbox;
  sandbox.maySupervise();
  sandbox.mayUseSystem();
  sandbox.mayRead(options.input);
  if (options.isProbe()) return sandbox;
  sandbox.mayRun(program);
  sandbox.mayChange(folderOf(resolved(options.target())));
  if (options.pass != 0) sandbox.mayChange(folderOf(options.passLogPrefix));
  if (!ProgressFile::folder().empty()) sandbox.mayChange(ProgressFile::folder());
  return sandbox;
}

Transcode::Transcode(const Options& asked, std::string program)
    : options(asked),
      programPath(std::move(program)),
      target(resolved(asked.target())),
      caller(getppid()) {}

bool Transcode::checkPaths(std::string* error) const {
  struct stat status {};
  const bool exists = stat(target.c_str(), &status) == 0;
  if (options.discardsOutput() && options.passLogPrefix.empty()) {
    *error = "/dev/null is an output for the first of two passes only";
  } else if (programPath.empty()) {
    *error = "no encoder: there is no other ffmpeg on PATH, nor in /usr/local/bin or /usr/bin";
  } else if (exists && !S_ISREG(status.st_mode)) {
    *error = target + ": not a regular file";
  } else if (exists && !options.discardsOutput() && isSameFile(options.input, target)) {
    *error = target + ": the output is the input";
  } else if (exists && !options.discardsOutput() && !options.overwrite) {
    *error = target + ": the file exists already (-y overwrites it)";
  } else {
    return true;
  }
  return false;
}

bool Transcode::readInput(std::string* error) {
  return probeMovie(options.input, kThoroughProbe, &facts, error);
}

int64_t Transcode::clipMs() const {
  const int64_t left = std::max<int64_t>(facts.durationUs / 1000 - options.startOffsetMs(), 0);
  return options.clipLengthMs() > 0 ? std::min(left, options.clipLengthMs()) : left;
}

bool Transcode::checkRequest(std::string* error) const {
  const VideoFacts* video = facts.video ? &*facts.video : nullptr;
  if (!video && facts.audio.empty()) {
    *error = options.input + ": neither pictures nor sound in it";
  } else if (video && int64_t{video->width} * video->height > kMaxPixels) {
    *error = options.input + ": its pictures are too large";
  } else if (clipMs() == 0 && !facts.durationIsGuess) {
    *error = "the clip starts at " + options.startOffset + " s, beyond the end of the input";
  } else {
    return true;
  }
  return false;
}

bool Transcode::preparePassLog(const WorkDirectory& work, std::string* error) const {
  if (options.pass != 2 || options.copiesVideo()) return true;
  for (const char* name : {kPassLog, kPassTree}) {
    const std::string log = loggedName(options.passLogPrefix, name);
    std::error_code failure;
    fs::copy_file(log, work.file(name), failure);
    if (failure && name == kPassLog) {
      *error = log + ": the first pass's log cannot be read: " + failure.message();
      return false;
    }
  }
  return true;
}

bool Transcode::encode(const Options& wanted, const WorkDirectory& work, StopSignals& signals,
                       EncodeResult* result) const {
  EncodePaths paths;
  paths.program = programPath;
  paths.output = wanted.discardsOutput() ? wanted.output : work.file(kOutputName);
  paths.passLogPrefix = work.file(kPassName);

  EncodeJob job;
  job.arguments = commandLine(wanted, facts, paths);
  job.sandbox.mayUseSystem();
  job.sandbox.mayRun(programPath);
  job.sandbox.mayRead(wanted.input);
  job.sandbox.mayChange(work.path());
  job.sandbox.limitMemory(memoryBytes);
  job.sandbox.limitFiles(kMaxInputBytes);
  job.words.rename("file:" + work.file(kOutputName), wanted.output);
  job.words.rename(work.file(kOutputName), wanted.output);
  job.words.rename(work.file(kPassName), wanted.passLogPrefix);
  job.stallLimit = stallLimit();

  ProgressFile file(wanted.target());
  Progress progress;
  progress.pass = wanted.pass == 2 ? 2 : 1;
  progress.passes = wanted.pass == 0 ? 1 : 2;
  progress.durationMs = clipMs();
  file.write(progress);
  *result = runEncode(std::move(job), signals, [&](int64_t positionMs) {
    progress.positionMs = std::min(positionMs, progress.durationMs);
    file.write(progress);
  });
  return result->end == EncodeResult::End::Done;
}

std::string Transcode::failure(const EncodeResult& result) const {
  using End = EncodeResult::End;
  std::string died = "the encoder died of signal " + std::to_string(result.signal) + " (" +
                     strsignal(result.signal) + ")";
  switch (result.end) {
    case End::Crashed:
      // libavcodec's rate control aborts when even its coarsest quantiser is over the bitrate.
      if (options.pass == 2 && result.signal != SIGKILL) {
        return "the video bitrate is too low for this picture size and frame rate: " + died;
      }
      return died;
    case End::Stalled:
      return "the encoder made no progress and was ended";
    case End::Stopped:
      return std::string("stopped by signal ") + strsignal(result.signal);
    case End::NotStarted:
      return programPath + " could not be started";
    default:
      return "the encoder failed";
  }
}

bool Transcode::checkResult(const WorkDirectory& work, const EncodeResult& result,
                            std::string* error) const {
  ExpectedOutput expected;
  expected.video = facts.video.has_value();
  expected.audio = !facts.audio.empty() && !options.noAudio;
  expected.writtenMs = result.positionMs;
  // A size limit still cuts the clip where the size is reached: its length proves nothing then.
  const bool mayBeShorter = options.maxSizeBytes > 0 || facts.durationIsGuess;
  expected.clipMs = mayBeShorter ? 0 : clipMs();
  return checkOutput(work.file(kOutputName), expected, error);
}

bool Transcode::publish(const WorkDirectory& work, std::string* error) const {
  const std::string made = work.file(kOutputName);
  syncFile(made);
  if (::rename(made.c_str(), target.c_str()) == 0) return true;
  *error = target + ": " + strerror(errno);
  return false;
}

bool Transcode::publishPassLog(const WorkDirectory& work, std::string* error) const {
  for (const char* name : {kPassLog, kPassTree}) {
    const std::string log = loggedName(options.passLogPrefix, name);
    if (::rename(work.file(name).c_str(), log.c_str()) != 0 && errno != ENOENT) {
      *error = log + ": " + strerror(errno);
      return false;
    }
  }
  return true;
}

void Transcode::removeOrphanedPassLog() const {
  if (options.pass == 0 || getppid() == caller) return;
  for (const char* name : {kPassLog, kPassTree}) {
    unlink(loggedName(options.passLogPrefix, name).c_str());
  }
}

bool Transcode::run(std::string* error, int* signal) {
  *signal = 0;
  if (!checkPaths(error)) return false;
  EncodeSlots slots(ProgressFile::folder());
  slots.awaitTurn();
  if (!readInput(error) || !checkRequest(error)) return false;
  memoryBytes = slots.begin(memoryFor(facts));
  StopSignals signals;
  const std::unique_ptr<WorkDirectory> work =
      WorkDirectory::create(target, error, ProgressFile::pathsFor(options.target()));
  if (!work || !preparePassLog(*work, error)) return false;
  EncodeResult result;
  if (!encode(options, *work, signals, &result)) {
    *error = result.words + failure(result);
    *signal = result.end == EncodeResult::End::Stopped ? result.signal : 0;
    removeOrphanedPassLog();
    return false;
  }
  if (options.pass == 1 && !publishPassLog(*work, error)) return false;
  removeOrphanedPassLog();
  if (options.discardsOutput()) return true;
  if (checkResult(*work, result, error)) return publish(*work, error);
  *error = result.words + *error;
  return false;
}
