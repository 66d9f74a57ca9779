#include "platform/ffmpeg/job/attempt_runner.h"

#include <signal.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "platform/ffmpeg/encode/likeness.h"
#include "platform/ffmpeg/encode/output_size.h"
#include "platform/ffmpeg/files/paths.h"
#include "platform/ffmpeg/probe/media_input.h"
#include "platform/ffmpeg/process/stop_signals.h"

namespace {

using Kind = Attempt::Kind;
using Clock = std::chrono::steady_clock;
using ResultEnd = EncodeResult::End;

// Names inside the work directory.
constexpr char kOutputName[] = "output";
constexpr char kPassName[] = "pass";
constexpr char kSampleName[] = "sample";
constexpr int64_t kRunaway = 4;  // times the limit
constexpr double kEarlyShare = 0.25;
constexpr double kSampleCost = 8;    // times its length, in encodes of the clip
constexpr double kComparing = 0.15;  // as that
constexpr int kSharesForComparing = 10;
constexpr double kLargePixels = 1e6;
constexpr double kLargePixelsOfH264 = 1e5;  // its encoders hold many pictures

// A test shortens it.
std::chrono::milliseconds stallLimit() {
  const char* text = getenv("TARN_FFMPEG_STALL_MS");
  const long milliseconds = text ? strtol(text, nullptr, 10) : 0;
  return std::chrono::milliseconds(milliseconds > 0 ? milliseconds : 30'000);
}

int64_t fileBytes(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

// Adds up the logs that sampleLine() leaves.
void readSample(const std::string& prefix, size_t parts,
                std::array<Sample::PerQuantiser, 2>* measured) {
  int number = 0;
  for (size_t part = 0; part < parts; ++part) {
    for (Sample::PerQuantiser& size : *measured) {
      for (Complexity& complexity : size) {
        const auto log = parsePassLog(textOf(prefix + "-" + std::to_string(number++) + ".log"));
        if (log) complexity.add(*log);
      }
    }
  }
}

double likelyBytes(double bytes, double share) {
  return share > 0 ? bytes / share : bytes;
}

}  // namespace

AttemptRunner::AttemptRunner(const Options& asked, const MediaFacts& about, EncoderProgram encoder,
                             const WorkDirectory& directory, StopSignals& stopSignals,
                             JobProgress& jobProgress)
    : options(asked),
      facts(about),
      program(std::move(encoder)),
      work(directory),
      signals(stopSignals),
      progress(jobProgress),
      began(Clock::now()) {}

std::string AttemptRunner::outputFile() const {
  return work.file(kOutputName);
}

std::string AttemptRunner::passLog() const {
  return work.file(std::string(kPassName) + "-0.log");
}

EncodeJob AttemptRunner::jobFor(std::vector<std::string> arguments) const {
  EncodeJob job;
  job.arguments = std::move(arguments);
  job.sandbox.mayUseSystem();
  job.sandbox.mayRun(program.path);
  job.sandbox.mayRead(options.input);
  job.sandbox.mayChange(work.path());
  job.sandbox.limitMemory(program.memoryBytes);
  job.sandbox.limitFiles(kMaxInputBytes);
  job.words.rename("file:" + outputFile(), options.output);
  job.words.rename(outputFile(), options.output);
  job.words.rename(work.file(kPassName), options.passLogPrefix);
  job.stallLimit = stallLimit();
  return job;
}

// As far as they can be had in time: the plan does without a slower one.
void AttemptRunner::encodeParts(const std::vector<SamplePart>& parts,
                                const std::array<Rung, 2>& rungs, double encodesAfter,
                                std::array<Sample::PerQuantiser, 2>* measured) {
  const auto deadline = Clock::now() + stallLimit();
  const std::string prefix = work.file(kSampleName);
  const bool isLarge = rungs[0].pixels() > (isH264(options) ? kLargePixelsOfH264 : kLargePixels);
  const size_t atOnce = isLarge ? 1 : parts.size();  // each has a decoder and four encoders
  for (size_t done = 0; done < parts.size(); done += atOnce) {
    const auto first = parts.begin() + static_cast<ptrdiff_t>(done);
    const std::vector<SamplePart> some(first, first + static_cast<ptrdiff_t>(atOnce));
    // The parts of one run go on side by side.
    const auto watch = [&](int64_t positionMs, int64_t) {
      const double within = static_cast<double>(positionMs) / 1000 / parts[0].seconds;
      const double made =
          static_cast<double>(done) + static_cast<double>(atOnce) * std::min(within, 1.0);
      progress.at(made / static_cast<double>(parts.size()), after(encodesAfter));
      return Clock::now() < deadline;
    };
    const auto encode = [&] {
      const EncodePaths paths = {program.path, "", prefix, mapsTones,
                                 isLarge ? 1 : program.threads};
      return runEncode(jobFor(sampleLine(options, facts, some, rungs, paths)), signals, watch);
    };
    EncodeResult result = encode();
    if (goesWithoutToneMapping(result)) result = encode();
    if (result.end != ResultEnd::Done) return;
    readSample(prefix, some.size(), measured);
  }
}

std::optional<Sample> AttemptRunner::sample(const FitPlan& plan) {
  const double seconds = plan.budget().seconds;
  const std::vector<SamplePart> parts = sampleParts(seconds, canJump(facts));
  const std::array<Rung, 2> rungs = sampleRungs(plan.ladder(), mostSampledPixels(options));
  double sampled = 0;
  for (const SamplePart& part : parts) {
    sampled += part.seconds;
  }
  // Most of its cost is the way to each part, from the key frame before it.
  const double encodesAfter = 1 + plan.encodesAfterUnknown();
  progress.begin(std::min(1.0, kSampleCost * sampled / std::max(seconds, 0.1)),
                 after(encodesAfter));
  std::array<Sample::PerQuantiser, 2> measured;
  encodeParts(parts, rungs, encodesAfter, &measured);
  progress.end();
  for (const Sample::PerQuantiser& size : measured) {
    for (const Complexity& complexity : size) {
      if (complexity.frames() == 0) return std::nullopt;
    }
  }
  return Sample(rungs, measured);
}

// Whether the encoder turned out to lack the filter, and another try does without.
bool AttemptRunner::goesWithoutToneMapping(const EncodeResult& result) {
  if (result.end != ResultEnd::Failed || !mapsTones ||
      result.words.find("No such filter") == std::string::npos) {
    return false;
  }
  mapsTones = false;
  return true;
}

// Whether the encode may still come to something.
bool AttemptRunner::goesOn(const FitPlan& plan, int64_t positionMs, int64_t reported) {
  const Attempt& attempt = plan.attempt();
  const int64_t bytes = std::max(reported, fileBytes(outputFile()));
  const double lengthMs = plan.budget().seconds * 1000;
  share = lengthMs > 0 ? std::min(static_cast<double>(positionMs) / lengthMs, 1.0) : 0;
  const double likely = likelyBytes(static_cast<double>(bytes), share);
  const bool isEarly = attempt.kind == Kind::First && share <= kEarlyShare;
  progress.at(share, after(isEarly ? plan.encodesAfterUnknown() : plan.encodesAfter(likely)));

  const int64_t limit = plan.budget().maxBytes;
  // The coarsest encode may be far above the limit, but not above a bit for each pixel.
  const double pixels =
      attempt.picture.pixels() * attempt.picture.framesPerSecond * lengthMs / 1000;
  const int64_t most =
      std::max(kRunaway * std::max(limit, facts.sizeBytes), static_cast<int64_t>(pixels / 8));
  isRunaway = limit > 0 && attempt.stopBytes == 0 && bytes > most;
  if (isRunaway) return false;
  if (attempt.stopBytes == 0) return true;
  const double allowed = attempt.stopsEarly ? std::min(1.0, share + kEarlyShare) : 1;
  return static_cast<double>(bytes) <= allowed * static_cast<double>(attempt.stopBytes);
}

// What comes behind the present run, in encodes; the second of two passes is another process's.
double AttemptRunner::after(double encodes) const {
  if (options.discardsOutput()) return 0;
  return encodes + (options.isCompared ? kComparing : 0);
}

std::optional<double> AttemptRunner::likeness(const FitPlan& plan, const std::string& made) {
  if (plan.kept().kind == Kind::Copy) return 1;
  const auto start = Clock::now();
  const auto most = (start - began) / kSharesForComparing;
  const EncodePaths paths = {program.path, "", "", mapsTones, program.threads};
  double sum = 0;
  int compared = 0;
  for (const SamplePart& part : likenessParts(plan.budget().seconds, canJump(facts))) {
    // The next part takes as long as those before it, or longer.
    if (compared > 0 && Clock::now() - start > most / 2) break;
    const EncodeResult result =
        runEncode(jobFor(likenessLine(options, facts, part, made, plan.kept().picture, paths)),
                  signals, [](int64_t, int64_t) { return true; });
    const auto value = parseLikeness(result.words);
    if (result.end != ResultEnd::Done || !value) break;
    sum += *value;
    ++compared;
  }
  if (compared == 0) return std::nullopt;
  return sum / compared;
}

EncodeResult AttemptRunner::encode(const FitPlan& plan) {
  EncodePaths paths;
  paths.program = program.path;
  paths.output = options.discardsOutput() ? options.output : outputFile();
  paths.passLogPrefix = work.file(kPassName);
  paths.mapsTones = mapsTones;
  paths.threads = program.threads;
  share = 0;
  const bool isFirst = plan.attempt().kind == Kind::First;
  progress.begin(1, after(isFirst ? plan.encodesAfterUnknown() : plan.encodesAfter(0)));
  EncodeResult result =
      runEncode(jobFor(commandLine(options, facts, plan.attempt(), paths)), signals,
                [&](int64_t positionMs, int64_t bytes) { return goesOn(plan, positionMs, bytes); });
  progress.end();
  return result;
}

bool AttemptRunner::run(const FitPlan& plan, Outcome* outcome, Failure* failure) {
  EncodeResult result = encode(plan);
  if (goesWithoutToneMapping(result)) result = encode(plan);
  lastWords = result.words;
  if (plan.attempt().kind != Kind::Copy) ++encoded;
  lastWrittenMs = result.positionMs;
  return judge(plan, result, outcome, failure);
}

bool AttemptRunner::judge(const FitPlan& plan, const EncodeResult& result, Outcome* outcome,
                          Failure* failure) {
  *outcome = Outcome();
  outcome->bytes = result.bytes;
  const bool hasDied = result.end == ResultEnd::Crashed || result.end == ResultEnd::Failed;
  const bool isPressed = result.end != ResultEnd::Crashed || result.signal != SIGKILL;
  if (result.end == ResultEnd::Done) return measure(plan, outcome, failure);
  if (result.end == ResultEnd::Refused && !isRunaway) {
    outcome->end = Outcome::End::Stopped;
    outcome->bytes = static_cast<int64_t>(
        likelyBytes(static_cast<double>(std::max(result.bytes, fileBytes(outputFile()))),
                    std::max(share, 0.02)));
    return true;
  }
  // libavcodec's rate control aborts when even its coarsest quantiser is over the bitrate, and
  // x264's says so.
  const bool isTooLow = isH264(options)
                            ? result.words.find("requested bitrate is too low") != std::string::npos
                            : hasQuantiser(options);
  if (plan.attempt().kind == Kind::Second && hasDied && isPressed && isTooLow) {
    outcome->end = Outcome::End::TooLow;
    return true;
  }
  // Streams that do not go into the container as they are can still be encoded.
  if (plan.attempt().kind == Kind::Copy && hasDied) {
    outcome->end = Outcome::End::Stopped;
    return true;
  }
  failure->words = result.words + reason(result);
  failure->stopSignal = result.end == ResultEnd::Stopped ? result.signal : 0;
  return false;
}

bool AttemptRunner::measure(const FitPlan& plan, Outcome* outcome, Failure* failure) const {
  outcome->end = Outcome::End::Whole;
  if (plan.attempt().kind == Kind::First) outcome->log = parsePassLog(textOf(passLog()));
  if (options.discardsOutput()) return true;
  OutputSize size;
  if (!measureOutput(outputFile(), &size)) {
    failure->words = lastWords + "nothing could be encoded: the result is no movie file";
    return false;
  }
  outcome->bytes = size.bytes;
  outcome->videoBytes = size.videoBytes;
  return true;
}

std::string AttemptRunner::reason(const EncodeResult& result) const {
  switch (result.end) {
    case ResultEnd::Crashed:
      return "the encoder died of signal " + std::to_string(result.signal) + " (" +
             strsignal(result.signal) + ")";
    case ResultEnd::Stalled:
      return "the encoder made no progress and was ended";
    case ResultEnd::Refused:
      return "the encoder wrote far more than was asked for and was ended";
    case ResultEnd::Stopped:
      return std::string("stopped by signal ") + strsignal(result.signal);
    case ResultEnd::NotStarted:
      return program.path + " could not be started";
    default:
      return "the encoder failed";
  }
}
