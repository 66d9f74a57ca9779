// The facts of a movie file, found by a process that can do nothing but read that one file.
#ifndef PLATFORM_FFMPEG_PROBE_MOVIE_PROBE_H
#define PLATFORM_FFMPEG_PROBE_MOVIE_PROBE_H

#include <string>

#include "platform/ffmpeg/probe/media_input.h"

struct MediaFacts;

// Somebody waits for the answer and does nothing else meanwhile: 2 s in all.
extern const ReadLimits kQuickProbe;
// For whoever encodes the file anyway, on a busy machine too: 6 s of the reader's own work.
extern const ReadLimits kThoroughProbe;

// Fills *facts. The regular file `path` is all that is read. The process gets half a second more
// than the limits to answer with what it found. On failure stores one clear line in *error and
// returns false. Not for a process with several threads.
bool probeMovie(const std::string& path, const ReadLimits& limits, MediaFacts* facts,
                std::string* error);

#endif
