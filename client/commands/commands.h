// The commands of tarn-transcode. Each takes the words behind its name and returns an exit code;
// the result goes to stdout, everything said about it to stderr.
#ifndef CLIENT_COMMANDS_COMMANDS_H
#define CLIENT_COMMANDS_COMMANDS_H

#include <string>
#include <vector>

#include "client/commands/report.h"

// call METHOD JSON: sends the JSON as it is and prints the reply as it comes.
ExitCode runCall(const std::vector<std::string>& words);

// resize-image IN OUT --size SIZE: a JPEG of at most SIZE bytes.
ExitCode runResizeImage(const std::vector<std::string>& words);

// fit IN OUT, fit FILES --out-dir DIR: photos of at most so many bytes, by com.tarn.Fit1.
ExitCode runFit(const std::vector<std::string>& words);

// info FILE: a movie's length, size and bitrate.
ExitCode runInfo(const std::vector<std::string>& words);

// resize-movie IN OUT: a movie re-encoded as the options say.
ExitCode runResizeMovie(const std::vector<std::string>& words);

// min-bitrate: the least bitrate of a movie, in bits per second.
ExitCode runMinBitrate(const std::vector<std::string>& words);

#endif
