// Runs the plan's attempts on the system's ffmpeg and tells what became of each.
#ifndef PLATFORM_FFMPEG_JOB_ATTEMPT_RUNNER_H
#define PLATFORM_FFMPEG_JOB_ATTEMPT_RUNNER_H

#include <chrono>
#include <optional>
#include <string>

#include "platform/ffmpeg/encode/command_line.h"
#include "platform/ffmpeg/encode/encoder.h"
#include "platform/ffmpeg/files/work_directory.h"
#include "platform/ffmpeg/job/job_progress.h"
#include "platform/ffmpeg/plan/fit_plan.h"
#include "platform/ffmpeg/probe/media_facts.h"

class StopSignals;

// Why a job cannot go on.
struct Failure {
  std::string words;          // one or more lines
  int stopSignal = 0;         // the one that ended it, or 0
  int64_t smallestBytes = 0;  // where the limit was too small: the least that would do
};

struct EncoderProgram {
  std::string path;
  int64_t memoryBytes = 0;  // that it may use
  int threads = 1;          // that each of its parts may start
};

// Borrows all it is given, for as long as it lives.
class AttemptRunner {
 public:
  AttemptRunner(const Options& options, const MediaFacts& facts, EncoderProgram program,
                const WorkDirectory& work, StopSignals& signals, JobProgress& progress);

  // Encodes the samples that the plan wants. Nothing when that fails: the plan does without.
  std::optional<Sample> sample(const FitPlan& plan);

  // Makes the plan's present attempt, in outputFile() unless the request discards it. True when it
  // has an outcome; on false *failure says why there is none.
  bool run(const FitPlan& plan, Outcome* outcome, Failure* failure);

  // How alike `made`, which is what the plan keeps, looks to the input: the mean SSIM of luma, of
  // parts of both, as many as a tenth of the time so far allows, and one. Nothing where that fails.
  std::optional<double> likeness(const FitPlan& plan, const std::string& made);

  std::string outputFile() const;
  std::string passLog() const;
  // What was written last, by the encoder's own account.
  int64_t writtenMs() const { return lastWrittenMs; }
  const std::string& words() const { return lastWords; }
  int encodes() const { return encoded; }  // of the whole clip

 private:
  EncodeJob jobFor(std::vector<std::string> arguments) const;
  void encodeParts(const std::vector<SamplePart>& parts, const std::array<Rung, 2>& rungs,
                   double encodesAfter, std::array<Sample::PerQuantiser, 2>* measured);
  EncodeResult encode(const FitPlan& plan);
  bool goesWithoutToneMapping(const EncodeResult& result);
  double after(double encodes) const;
  bool goesOn(const FitPlan& plan, int64_t positionMs, int64_t bytes);
  bool judge(const FitPlan& plan, const EncodeResult& result, Outcome* outcome, Failure* failure);
  bool measure(const FitPlan& plan, Outcome* outcome, Failure* failure) const;
  std::string reason(const EncodeResult& result) const;

  const Options& options;
  const MediaFacts& facts;
  EncoderProgram program;
  const WorkDirectory& work;
  StopSignals& signals;
  JobProgress& progress;
  const std::chrono::steady_clock::time_point began;
  bool mapsTones = true;
  bool isRunaway = false;
  double share = 0;  // of the present encode that is done
  int64_t lastWrittenMs = 0;
  std::string lastWords;
  int encoded = 0;
};

#endif
