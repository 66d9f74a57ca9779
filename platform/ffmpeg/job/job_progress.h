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

// The position told is the share of the time that is over, as a part of the clip's length: it
// grows evenly although the clip is gone through more than once, and it never runs backwards. What
// is to come is taken to go as fast as what is being done.
class JobProgress {
 public:
  using Clock = std::function<double()>;  // seconds

  // Told to `listener` where there is one, else by a progress file.
  JobProgress(const Options& options, int64_t durationMs, ShareListener listener,
              Clock clock = steadySeconds);

  // A run begins that costs `cost` encodes of the whole clip; `after` more are likely behind it.
  void begin(double cost, double after);
  // `share` of the run is done, 0 to 1, and now `after` encodes are likely behind it.
  void at(double share, double after);
  void end();

  static double steadySeconds();

 private:
  void tell(double share, double after);

  ShareListener listener;
  Clock clock;
  std::optional<ProgressFile> file;
  Progress progress;
  const double jobBegan;
  double runBegan = 0;
  double runCost = 0;
  double doneCost = 0;
  double pace = 0;  // seconds an encode; 0: not known yet
};

#endif
