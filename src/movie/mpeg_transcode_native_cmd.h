// MpegTranscodeNativeCmd runs a movie request as a command: one child process a pass, watched by a
// detached thread that replies and then deletes the probe and the task.
//
// Thread: the main loop's up to run(); from then on only the task's own.
// Owns: once run() returned LaunchRunning, itself and mpegInfo.
#ifndef SRC_MOVIE_MPEG_TRANSCODE_NATIVE_CMD_H
#define SRC_MOVIE_MPEG_TRANSCODE_NATIVE_CMD_H

#include <pthread.h>

#include "src/framework/program.h"
#include "src/movie/mpeg_transcode_native.h"

class MpegTranscodeNativeCmd : public MpegTranscodeNative {
 public:
  using MpegTranscodeNative::MpegTranscodeNative;

  // Starts the thread. Returns LaunchRunning: the task may be gone by then. Returns LaunchFailed
  // with the error message set, and no reply, when there is no thread to be had.
  LaunchResult run() override;

  // Called in a child process: replaces it with the command of that pass. Returns only on failure.
  virtual int exec(int pass) = 0;

  // Removes what the passes left behind. Called after the last pass and after one that failed.
  virtual void cleanup();

  // Runs the pass and then those below it; pass 1 is the last. Replies once: success after pass 1,
  // failure as soon as a pass fails, with the child's standard error as detail. A pass below 1
  // fails without a reply.
  virtual LaunchResult launchChild(int pass);

 protected:
  // Prints the command line to standard output: program, which is a format text, then up to 100
  // arguments of argv, which ends with a null pointer.
  static void dumpCmd(const char* program, const char** argv);

 private:
  static void* taskThreadFunc(void* task);
  LaunchResult childFailed(const char* errorText, const std::string& standardError);

  pthread_t workerThread;  // set by the thread itself; detached
};

// One pass of a transcoder, as a program.
class ProgramWithPass final : public Program {
 public:
  ProgramWithPass(MpegTranscodeNativeCmd* transcoder, int passNumber)
      : owner(transcoder), pass(passNumber) {}

  int exec() override { return owner->exec(pass); }

 private:
  MpegTranscodeNativeCmd* owner;  // borrowed
  int pass;                       // from 1
};

#endif
