#include "platform/ffmpeg/job/job_progress.h"

#include <algorithm>
#include <cmath>
#include <utility>

JobProgress::JobProgress(const Options& options, int64_t durationMs, ShareListener shareListener)
    : listener(std::move(shareListener)) {
  if (!listener) file.emplace(options.target());
  progress.pass = options.pass == 2 ? 2 : 1;
  progress.passes = options.pass == 0 ? 1 : 2;
  progress.durationMs = durationMs;
  if (file) file->write(progress);
}

void JobProgress::begin(double cost, double after) {
  runCost = cost;
  tell(doneCost, doneCost + runCost + after);
}

void JobProgress::at(double share, double after) {
  tell(doneCost + std::clamp(share, 0.0, 1.0) * runCost, doneCost + runCost + after);
}

void JobProgress::end() {
  doneCost += runCost;
  runCost = 0;
}

void JobProgress::tell(double done, double all) {
  const double share = all > 0 ? done / all : 0;
  const int64_t position = std::llround(share * static_cast<double>(progress.durationMs));
  progress.positionMs = std::max(progress.positionMs, std::min(position, progress.durationMs));
  if (file) {
    file->write(progress);
  } else if (progress.durationMs > 0) {
    listener(static_cast<double>(progress.positionMs) / static_cast<double>(progress.durationMs));
  }
}
