// What a worker tells while it works, a line each:
//
//     progress 350                       thousandths
//     word format matroska               a name, of a few that there are
//     writing                            from here on the output is no longer as it was
//     result bytes=… width=… …           the end of a success
//     failure NAME SMALLEST-BYTES TEXT   the end of anything else
//
// A worker may have been taken over by what it reads: no line is believed further than it can be.
#ifndef FIT_WIRE_REPORT_LINES_H
#define FIT_WIRE_REPORT_LINES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "fit/failure/fit_failure.h"

// Of a worker's: bytes, width, height, similarity in millionths, encodes, orientation, metadata,
// milliseconds.
using ReportedNumbers = std::map<std::string, int64_t>;

constexpr double kSimilarityUnit = 1e6;

struct WorkerReport {
  double progress = 0;
  bool writes = false;
  std::map<std::string, std::string> words;  // format, videoCodec, audioCodec
  std::optional<ReportedNumbers> result;
  std::optional<FitFailure> failure;
};

std::string progressLine(double share);
std::string writingLine();
std::string wordLine(const std::string& name, const std::string& word);
std::string resultLine(const ReportedNumbers& numbers);
std::string failureLine(const FitFailure& failure);

// Takes a line, without its end, into the report. A line that is none of these, or comes after the
// end, changes nothing. Progress never falls.
void takeReportLine(const std::string& line, WorkerReport* report);

#endif
