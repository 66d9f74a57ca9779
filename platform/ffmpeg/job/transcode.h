// One request, from the options to the finished file: encodes as the plan says, checks what came
// out and puts it in its place.
#ifndef PLATFORM_FFMPEG_JOB_TRANSCODE_H
#define PLATFORM_FFMPEG_JOB_TRANSCODE_H

#include <optional>
#include <string>

#include "platform/ffmpeg/files/work_directory.h"
#include "platform/ffmpeg/job/attempt_runner.h"
#include "platform/ffmpeg/plan/fit_plan.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/process/sandbox.h"
#include "platform/ffmpeg/request/options.h"

// The caller runs this program once for one pass and twice for two. The first of two runs chooses
// the picture and leaves the first pass's log, and beside it the choice; the second makes the
// file, by the log or, where there is none, from scratch. A limit holds in either way.
class Transcode {
 public:
  // `program` is the system's ffmpeg. Without a `listener` a progress file tells how far it is.
  Transcode(const Options& asked, std::string program, ShareListener listener = nullptr);

  // Reads the input and makes the output. On success the output is in its place; on failure the
  // former file, if any, is still there, nothing is left behind, and *failure says why.
  bool run(Failure* failure);
  // Of a success, encodes of the whole clip that it took; 0: its streams went over as they were.
  int encodes() const { return encoded; }
  // Of a success that was to be compared, how alike it looks to the input, at most 1; nothing where
  // that could not be told.
  std::optional<double> likeness() const { return alike; }

 private:
  bool checkPaths(std::string* error) const;
  bool readInput(std::string* error);
  bool checkRequest(std::string* error) const;
  bool analyse(FitPlan& plan, AttemptRunner& runner, Failure* failure) const;
  bool make(FitPlan& plan, AttemptRunner& runner, Failure* failure);
  bool keep(AttemptRunner& runner, std::string* error) const;
  bool isWanted(std::string* error) const;
  bool publish(std::string* error) const;
  bool publishPassLog(const Rung& picture, std::string* error) const;
  void continueFromPassLog(FitPlan& plan) const;
  std::string refusal(const FitPlan& plan) const;

  Options options;
  std::string programPath;
  ShareListener listener;
  std::string target;  // where the output (or the pass log) ends up, links resolved
  MediaFacts facts;
  std::unique_ptr<WorkDirectory> work;
  int encoded = 0;
  std::optional<double> alike;
};

// What this program itself may do while it serves these options.
Sandbox sandboxFor(const Options& options, const std::string& program);

#endif
