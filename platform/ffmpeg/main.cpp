// ffmpeg as the transcoding daemon knows it: the old command line and report, on the system's
// ffmpeg.
//
//   ffmpeg -i FILE                        prints the report on FILE, exit 1 as it always was
//   ffmpeg -i FILE [options] OUTPUT       encodes, exit 0
//
// Standard output stays empty; whatever fails is told on standard error with exit 1.

#include <signal.h>
#include <unistd.h>

#include <string>

#include "platform/ffmpeg/files/pass_log_guard.h"
#include "platform/ffmpeg/job/output_folders.h"
#include "platform/ffmpeg/job/transcode.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "platform/ffmpeg/probe/probe_report.h"
#include "platform/ffmpeg/process/process_setup.h"
#include "platform/ffmpeg/process/real_ffmpeg.h"
#include "platform/ffmpeg/process/sandbox.h"
#include "platform/ffmpeg/process/withdrawal_watch.h"
#include "platform/ffmpeg/request/options.h"
#include "platform/ffmpeg/text/plain_text.h"

namespace {

constexpr char kNoSandbox[] = "the sandbox cannot be entered";

void print(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(STDERR_FILENO, text.data() + done, text.size() - done);
    if (count <= 0) return;
    done += static_cast<size_t>(count);
  }
}

// `reason` may have several lines; each is made safe to print.
int fail(const std::string& reason) {
  size_t start = 0;
  std::string text;
  for (size_t end = reason.find('\n'); end != std::string::npos; end = reason.find('\n', start)) {
    text += printableLine(reason.substr(start, end - start)) + "\n";
    start = end + 1;
  }
  print(text + "ffmpeg: " + printableLine(reason.substr(start)) + "\n");
  return 1;
}

int probe(const Options& options) {
  MediaFacts facts;
  std::string error;
  if (!probeMovie(options.input, kQuickProbe, &facts, &error)) return fail(error);
  print(probeReport(facts) + "At least one output file must be specified\n");
  return 1;
}

int transcode(const Options& options, const std::string& program, pid_t parent) {
  const WithdrawalWatch watch(options.target());
  if (options.pass == 1) guardPassLogs(passLogs(options.passLogPrefix), parent);
  Failure failure;
  {
    OutputFolders folders(options);
    Sandbox sandbox = sandboxFor(options, program);
    folders.allowRemoval(&sandbox);
    if (!sandbox.enter()) return fail(kNoSandbox);
    Transcode job(options, program);
    const bool succeeded = job.run(&failure);
    folders.settle(succeeded);
    if (succeeded) return 0;
  }
  fail(failure.words);
  if (failure.stopSignal != 0) raise(failure.stopSignal);  // whoever stopped us sees that it was so
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const pid_t parent = getppid();
  closeInheritedDescriptors();
  resetSignals();
  if (!endWithParent(SIGTERM, parent) || !isListenedTo()) return 1;

  Options options;
  std::string error;
  if (!parseOptions(argc, argv, &options, &error)) return fail(error);
  if (!options.isProbe()) return transcode(options, findRealFfmpeg(), parent);
  return sandboxFor(options, "").enter() ? probe(options) : fail(kNoSandbox);
}
