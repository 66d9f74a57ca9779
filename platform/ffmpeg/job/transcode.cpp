#include "platform/ffmpeg/job/transcode.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include "platform/ffmpeg/encode/output_check.h"
#include "platform/ffmpeg/files/paths.h"
#include "platform/ffmpeg/files/progress_file.h"
#include "platform/ffmpeg/files/shared_folder.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "platform/ffmpeg/process/encode_slots.h"
#include "platform/ffmpeg/process/process_setup.h"
#include "platform/ffmpeg/process/stop_signals.h"
#include "platform/held/held_file.h"

namespace {

namespace fs = std::filesystem;

// Names inside the work directory. Encoders write "pass-0.log"; some add a second file.
constexpr char kBestName[] = "best";
constexpr char kPassLog[] = "pass-0.log";
constexpr char kPassTree[] = "pass-0.log.mbtree";
constexpr char kPassPicture[] = "picture";

// Where the files of a first pass wait for the second: the caller removes PREFIX-0.log to
// PREFIX-9.log.
const std::pair<const char*, const char*> kLogged[] = {
    {kPassLog, "-0.log"}, {kPassTree, "-1.log"}, {kPassPicture, "-2.log"}};

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return fs::equivalent(one, other, ignored);
}

// Beyond a few, threads win little time and cost a picture or two each: 4K must stay in memory.
int threadCount() {
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 4U));
}

// What an encoder was seen to take: pictures that are kept for reference and in each thread, the
// threads' own, and the program itself.
int64_t memoryFor(const Options& options, const MediaFacts& facts) {
  constexpr int64_t kMega = 1 << 20;
  const int64_t threads = threadCount();
  const int64_t pixels = facts.video ? int64_t{facts.video->width} * facts.video->height : 0;
  // x264's pictures, with all that it keeps of each.
  const int64_t side = longestSide(options);
  const int64_t encoded = isH264(options) ? std::min(pixels, side * side * 9 / 16) * 125 : 0;
  return 40 * kMega + threads * 10 * kMega + pixels * 3 / 2 * (16 + 3 * threads) + encoded;
}

// So that a power cut leaves the old file or the new one, and not an empty one.
void syncFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
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
  if (const std::string shared = sharedFolder(); !shared.empty()) sandbox.mayChange(shared);
  return sandbox;
}

Transcode::Transcode(const Options& asked, std::string program, ShareListener shareListener)
    : options(asked),
      programPath(std::move(program)),
      listener(std::move(shareListener)),
      target(resolved(asked.target())) {}

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

bool Transcode::checkRequest(std::string* error) const {
  const VideoFacts* video = facts.video ? &*facts.video : nullptr;
  if (!video && facts.audio.empty()) {
    *error = options.input + ": neither pictures nor sound in it";
  } else if (video && int64_t{video->width} * video->height > kMaxPixels) {
    *error = options.input + ": its pictures are too large";
  } else if (clipLengthMs(options, facts) == 0 && !facts.durationIsGuess) {
    *error = "the clip starts at " + options.startOffset + " s, beyond the end of the input";
  } else {
    return true;
  }
  return false;
}

void Transcode::continueFromPassLog(FitPlan& plan) const {
  for (const auto& [name, logged] : kLogged) {
    std::error_code ignored;
    fs::copy_file(options.passLogPrefix + logged, work->file(name), ignored);
  }
  Rung picture;
  char slash = 0;
  char cross = 0;
  std::ifstream choice(work->file(kPassPicture));
  choice >> picture.size.width >> cross >> picture.size.height >> picture.rate.num >> slash >>
      picture.rate.den;
  const std::string log = textOf(work->file(kPassLog));
  if (choice && !log.empty()) plan.continueFrom(picture, parsePassLog(log));
}

bool Transcode::publishPassLog(const Rung& picture, std::string* error) const {
  if (!isWanted(error)) return false;
  std::ofstream(work->file(kPassPicture)) << picture.size.width << 'x' << picture.size.height << ' '
                                          << picture.rate.num << '/' << picture.rate.den << '\n';
  for (const auto& [name, logged] : kLogged) {
    const std::string log = options.passLogPrefix + logged;
    if (::rename(work->file(name).c_str(), log.c_str()) != 0 && errno != ENOENT) {
      *error = log + ": " + strerror(errno);
      return false;
    }
  }
  return true;
}

// The first pass that the second run goes on with: at the end of the ladder there may be none, and
// then that run tells why.
bool Transcode::analyse(FitPlan& plan, AttemptRunner& runner, Failure* failure) const {
  auto verdict = FitPlan::Verdict::Encode;
  while (verdict == FitPlan::Verdict::Encode && plan.attempt().kind == Attempt::Kind::First) {
    const Rung picture = plan.attempt().picture;
    Outcome outcome;
    if (!runner.run(plan, &outcome, failure)) return false;
    verdict = plan.take(outcome);
    if (outcome.end == Outcome::End::Whole && !publishPassLog(picture, &failure->words)) {
      return false;
    }
  }
  return true;
}

// Takes the output just made for the best so far, if it is whole.
bool Transcode::keep(AttemptRunner& runner, std::string* error) const {
  ExpectedOutput expected;
  expected.video = facts.video.has_value();
  expected.audio = !facts.audio.empty() && !options.noAudio;
  expected.writtenMs = runner.writtenMs();
  expected.clipMs = facts.durationIsGuess ? 0 : clipLengthMs(options, facts);
  if (!checkOutput(runner.outputFile(), expected, error)) {
    *error = runner.words() + *error;
    return false;
  }
  std::error_code failed;
  fs::rename(runner.outputFile(), work->file(kBestName), failed);
  if (failed) *error = target + ": " + failed.message();
  return !failed;
}

std::string Transcode::refusal(const FitPlan& plan) const {
  const Budget& budget = plan.budget();
  const std::string most = std::to_string(askFor(budget, plan.smallestBytes()));
  if (!budget.isByRate) {
    return "the whole clip cannot be had in " + std::to_string(options.maxSizeBytes) +
           " bytes: about " + most + " bytes is the smallest at this picture size and frame rate";
  }
  return "the whole clip cannot be had at " +
         std::to_string(options.videoBitsPerSecond() +
                        (options.noAudio ? 0 : options.audioBitsPerSecond())) +
         " bits per second: about " + most +
         " bits per second is the smallest at this picture size and frame rate";
}

bool Transcode::make(FitPlan& plan, AttemptRunner& runner, Failure* failure) {
  auto verdict = FitPlan::Verdict::Encode;
  while (verdict == FitPlan::Verdict::Encode) {
    Outcome outcome;
    if (!runner.run(plan, &outcome, failure)) return false;
    verdict = plan.take(outcome);
    if (plan.keepsLast() && !keep(runner, &failure->words)) return false;
  }
  encoded = runner.encodes();
  if (verdict == FitPlan::Verdict::Done) {
    if (options.isCompared) alike = runner.likeness(plan, work->file(kBestName));
    return publish(&failure->words);
  }
  failure->words = refusal(plan);
  failure->smallestBytes = plan.smallestBytes();
  return false;
}

// Whoever started us may have been killed before we could ask the kernel to tell us.
bool Transcode::isWanted(std::string* error) const {
  if (isListenedTo() && !isWithdrawn(target)) return true;
  *error = "nobody waits for the output any more";
  return false;
}

bool Transcode::publish(std::string* error) const {
  const std::string made = work->file(kBestName);
  syncFile(made);
  if (!isWanted(error)) return false;
  if (::rename(made.c_str(), target.c_str()) == 0) return true;
  *error = target + ": " + strerror(errno);
  return false;
}

bool Transcode::run(Failure* failure) {
  std::string* error = &failure->words;
  if (!checkPaths(error)) return false;
  EncodeSlots slots(sharedFolder());
  slots.awaitTurn();
  if (!readInput(error) || !checkRequest(error) || !isWanted(error)) return false;
  const int64_t memoryBytes = slots.begin(memoryFor(options, facts));
  StopSignals signals;
  work = WorkDirectory::create(target, error, ProgressFile::pathsFor(options.target()));
  if (!work) return false;
  FitPlan plan(options, facts);
  JobProgress progress(options, clipLengthMs(options, facts), listener);
  AttemptRunner runner(options, facts, {programPath, memoryBytes, threadCount()}, *work, signals,
                       progress);
  if (options.pass == 2) continueFromPassLog(plan);
  if (plan.wantsSample()) {
    const auto sample = runner.sample(plan);
    if (sample) plan.sampled(*sample);
  }
  return options.discardsOutput() ? analyse(plan, runner, failure) : make(plan, runner, failure);
}
