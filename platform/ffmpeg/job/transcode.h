// One request, from the options to the finished file: plans the encode, runs it, checks what came
// out and puts it in its place.
#ifndef PLATFORM_FFMPEG_JOB_TRANSCODE_H
#define PLATFORM_FFMPEG_JOB_TRANSCODE_H

#include <sys/types.h>

#include <string>

#include "platform/ffmpeg/encode/encoder.h"
#include "platform/ffmpeg/files/work_directory.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/request/options.h"

class StopSignals;

// A request is one encode today, and a size limit ("-fs") is passed on to it plainly: the encoder
// stops where the limit is reached, a little beyond it, and the clip may lack its end. Keeping the
// whole clip within the limit will take several encodes: each is a call of encode() with options
// of its own, and only the last one's file is published.
class Transcode {
 public:
  // `program` is today's ffmpeg.
  Transcode(const Options& asked, std::string program);

  // Reads the input and makes the output. On success the output is in its place; on failure the
  // former file, if any, is still there, nothing is left behind, and *error says why in one or
  // more lines. When a stop signal ended it, stores that signal in *signal, else 0.
  bool run(std::string* error, int* signal);

 private:
  bool checkPaths(std::string* error) const;
  bool readInput(std::string* error);
  bool checkRequest(std::string* error) const;
  bool preparePassLog(const WorkDirectory& work, std::string* error) const;
  bool encode(const Options& options, const WorkDirectory& work, StopSignals& signals,
              EncodeResult* result) const;
  bool checkResult(const WorkDirectory& work, const EncodeResult& result, std::string* error) const;
  bool publish(const WorkDirectory& work, std::string* error) const;
  bool publishPassLog(const WorkDirectory& work, std::string* error) const;
  // Whoever started us removes it after the last pass, but not when it was killed.
  void removeOrphanedPassLog() const;
  std::string failure(const EncodeResult& result) const;
  int64_t clipMs() const;

  Options options;
  std::string programPath;
  std::string target;  // where the output (or the pass log) ends up, links resolved
  pid_t caller;
  MediaFacts facts;
  int64_t memoryBytes = 0;  // that the encoder may use
};

// What this program itself may do while it serves these options.
Sandbox sandboxFor(const Options& options, const std::string& program);

#endif
