#include "src/movie/mpeg_transcode_native_cmd.h"

#include <glib.h>

#include <cstdio>

namespace {

constexpr int kNiceInc = 10;
constexpr int kMaxDumped = 100;

}  // namespace

LaunchResult MpegTranscodeNativeCmd::run() {
  pthread_t thread;  // not the member: the task may end before pthread_create returns
  if (pthread_create(&thread, nullptr, taskThreadFunc, this) != 0) {
    ctx->setLastErrorMessage("fork transcode service failed");
    return LaunchFailed;
  }
  pthread_detach(thread);
  return LaunchRunning;
}

void* MpegTranscodeNativeCmd::taskThreadFunc(void* data) {
  auto* task = static_cast<MpegTranscodeNativeCmd*>(data);
  task->workerThread = pthread_self();
  task->launchChild(task->getPasses());
  delete task->mpegInfo;
  delete task;
  return nullptr;
}

LaunchResult MpegTranscodeNativeCmd::launchChild(int pass) {
  if (pass < 1) return LaunchFailed;

  ProgramWithPass program(this, pass);
  std::string out;
  std::string err;
  int status;
  if (execProgram(out, err, &status, kNiceInc, &program) == -1) {
    ctx->setLastErrorMessage("fork transcode worker failed");
    ctx->replyFail();
    return LaunchFailed;
  }
  if ((status & 0x7f) != 0) return childFailed("transcode worker aborted", err);

  g_debug("StdOut>>>>>>>>>>>>>>>>\n%s\nStdOut<<<<<<<<<<<<<<", out.c_str());
  g_debug("StdErr>>>>>>>>>>>>>>>>\n%s\nStdErr<<<<<<<<<<<<<<", err.c_str());
  if (((status >> 8) & 0xff) != 0) {
    return childFailed("transcode worker exit with non zero code", err);
  }

  if (pass != 1) return launchChild(pass - 1);
  replySuccess();
  cleanup();
  return LaunchDone;
}

LaunchResult MpegTranscodeNativeCmd::childFailed(const char* errorText,
                                                 const std::string& standardError) {
  ctx->setLastErrorMessage(errorText);
  ctx->setLastErrorDetail(standardError.c_str());
  ctx->replyFail();
  cleanup();
  return LaunchFailed;
}

void MpegTranscodeNativeCmd::cleanup() {}

void MpegTranscodeNativeCmd::dumpCmd(const char* program, const char** argv) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  printf(program);
#pragma GCC diagnostic pop
  for (int i = 0; i < kMaxDumped && argv[i] != nullptr; i++) {
    printf(" %s", argv[i]);
  }
  printf("\n");
}
