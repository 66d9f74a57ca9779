#include "platform/ffmpeg/job/job_progress.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace {

// Of a run: before that its own speed says little, an encoder having to fill itself first.
constexpr double kTooEarlyToTell = 0.15;

}  // namespace

JobProgress::JobProgress(const Options& options, int64_t durationMs, ShareListener shareListener,
                         Clock jobClock)
    : listener(std::move(shareListener)), clock(std::move(jobClock)), jobBegan(clock()) {
  if (!listener) file.emplace(options.target());
  progress.pass = options.pass == 2 ? 2 : 1;
  progress.passes = options.pass == 0 ? 1 : 2;
  progress.durationMs = durationMs;
  if (file) file->write(progress);
}

double JobProgress::steadySeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void JobProgress::begin(double cost, double after) {
  runBegan = clock();
  runCost = cost;
  tell(0, after);
}

void JobProgress::at(double share, double after) {
  const double done = std::clamp(share, 0.0, 1.0);
  if (done >= kTooEarlyToTell) pace = (clock() - runBegan) / (done * runCost);
  tell(done, after);
}

void JobProgress::end() {
  if (runCost > 0) pace = (clock() - runBegan) / runCost;
  doneCost += runCost;
  runCost = 0;
}

void JobProgress::tell(double done, double after) {
  const double left = runCost * (1 - done) + after;
  double spent = doneCost + runCost * done;
  double all = spent + left;
  if (pace > 0) {
    spent = clock() - jobBegan;
    all = spent + pace * left;
  }
  const double share = all > 0 ? spent / all : 0;
  const int64_t position = std::llround(share * static_cast<double>(progress.durationMs));
  progress.positionMs = std::max(progress.positionMs, std::min(position, progress.durationMs));
  if (file) {
    file->write(progress);
  } else if (progress.durationMs > 0) {
    listener(static_cast<double>(progress.positionMs) / static_cast<double>(progress.durationMs));
  }
}
