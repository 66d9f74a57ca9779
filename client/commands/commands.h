// The commands of tarn-transcode. Each takes its options, which go together, and returns an exit
// code; the result goes to stdout, everything said about it to stderr.
#ifndef CLIENT_COMMANDS_COMMANDS_H
#define CLIENT_COMMANDS_COMMANDS_H

#include "client/commands/options.h"
#include "client/commands/report.h"

// call METHOD JSON: sends the JSON as it is and prints the reply as it comes.
ExitCode runCall(const Options& options);

// resize-image IN OUT --size SIZE: a JPEG of at most SIZE bytes.
ExitCode runResizeImage(const Options& options);

// fit IN OUT, fit FILES --out-dir DIR: photos and movies of at most so many bytes, by
// com.tarn.Fit1.
ExitCode runFit(const Options& options);

// info FILE: what a photo or a movie is.
ExitCode runInfo(const Options& options);

// resize-movie IN OUT: a movie re-encoded as the options say.
ExitCode runResizeMovie(const Options& options);

// min-bitrate: the least bitrate of a movie, in bits per second.
ExitCode runMinBitrate(const Options& options);

#endif
