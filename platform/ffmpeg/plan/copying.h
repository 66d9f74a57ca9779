// Whether a source is already what the request asks for.
#ifndef PLATFORM_FFMPEG_PLAN_COPYING_H
#define PLATFORM_FFMPEG_PLAN_COPYING_H

#include "platform/ffmpeg/plan/budget.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/request/options.h"

// Its streams then go over into the new file as they are: faster, and without a loss.
bool isAlreadyAsAsked(const Options& options, const MediaFacts& facts, const Budget& budget);

#endif
