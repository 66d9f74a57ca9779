// What a movie file is, as text: the way from the process that read it to the one that asked.
#ifndef PLATFORM_FFMPEG_PROBE_FACTS_TEXT_H
#define PLATFORM_FFMPEG_PROBE_FACTS_TEXT_H

#include <string>
#include <string_view>

struct MediaFacts;

std::string packFacts(const MediaFacts& facts);

// The inverse. The text comes from a process that a foreign file may have taken over: false when it
// is not whole or promises less than MediaFacts does, *facts being unspecified then.
bool unpackFacts(std::string_view text, MediaFacts* facts);

#endif
