// What a request allows the whole file to weigh.
#ifndef PLATFORM_FFMPEG_PLAN_BUDGET_H
#define PLATFORM_FFMPEG_PLAN_BUDGET_H

#include <cstdint>

#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/request/options.h"

struct Budget {
  int64_t maxBytes = 0;   // 0: no limit
  bool isByRate = false;  // it stands for a bitrate, not for a size
  int64_t aimBytes = 0;   // what to encode for
  double seconds = 0;     // the length of the clip
};

// The smaller of "-fs" and, where both streams' bitrates are known, what these come to plus a
// twentieth. A bitrate means little over less than a second: shorter clips have the bytes of one.
Budget budgetOf(const Options& options, const MediaFacts& facts);

// The length of the clip that the options cut out, in ms.
int64_t clipLengthMs(const Options& options, const MediaFacts& facts);

// The bitrate, or the size, that has to be asked for so that `bytes` are enough. The program's
// caller keeps a twentieth of a size and more of a bitrate back; it is part of what to ask for.
int64_t askFor(const Budget& budget, int64_t bytes);

#endif
