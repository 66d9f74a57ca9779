// What the program prints about its input: the report that its callers read figures from.
#ifndef PLATFORM_FFMPEG_PROBE_PROBE_REPORT_H
#define PLATFORM_FFMPEG_PROBE_PROBE_REPORT_H

#include <string>

struct MediaFacts;

// The whole report, ASCII only, ending in a line end. Callers look for one "Duration: " and, after
// it, for one "Video: … kb/s, F fps, T tbr"; foreign text stands before that and cannot imitate it.
std::string probeReport(const MediaFacts& facts);

// Rates as "29.97", whole ones as "25", whole thousands as "90k".
std::string rateText(double rate);

#endif
