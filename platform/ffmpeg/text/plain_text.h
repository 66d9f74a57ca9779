// Foreign text (file names, tags, another program's words) made safe to print on standard error.
//
// Whoever reads our standard error looks for a line that begins with "Duration: "; a file name or
// a tag must never be taken for it. Both operations therefore break that word's colon.
#ifndef PLATFORM_FFMPEG_TEXT_PLAIN_TEXT_H
#define PLATFORM_FFMPEG_TEXT_PLAIN_TEXT_H

#include <string>

// One line of printable text: control characters become spaces. Bytes above 0x7f are kept.
std::string printableLine(const std::string& text);

// As printableLine, and every byte that is not ASCII becomes '?'.
std::string asciiLine(const std::string& text);

#endif
