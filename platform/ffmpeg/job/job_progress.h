// How far a whole job has come, over all its encodes, as other programs see it.
#ifndef PLATFORM_FFMPEG_JOB_JOB_PROGRESS_H
#define PLATFORM_FFMPEG_JOB_JOB_PROGRESS_H

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/ffmpeg/files/progress_file.h"
#include "platform/ffmpeg/request/options.h"

// Hears the share of the work that is done.
using ShareListener = std::function<void(double)>;

// The position told is the share of the work that is done, as a part of the clip's length: it
// grows evenly although the clip is gone through more than once, and it never runs backwards.
class JobProgress {
 public:
  // Told to `listener` where there is one, else by a progress file.
  JobProgress(const Options& options, int64_t durationMs, ShareListener listener);

  // A run begins that costs `cost` encodes of the whole clip; `after` more are likely behind it.
  void begin(double cost, double after);
  // `share` of the run is done, 0 to 1, and now `after` encodes are likely behind it.
  void at(double share, double after);
  void end();

 private:
  void tell(double done, double all);

  ShareListener listener;
  std::optional<ProgressFile> file;
  Progress progress;
  double doneCost = 0;
  double runCost = 0;
};

#endif
