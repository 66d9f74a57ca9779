#include "fit/service/worker_process.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace {

// A longer line is none of a worker's own.
constexpr size_t kLongestLine = 1024;

// A worker gets no environment but what a checked build needs, and a movie's where to find ffmpeg,
// where to work and where the other movies' encoders wait for their turn.
std::vector<std::string> workerEnvironment(MediaKind kind) {
  std::vector<const char*> names = {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS",
                                    "TSAN_OPTIONS"};
  if (kind == MediaKind::Movie) {
    names.insert(names.end(), {"PATH", "HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"});
  }
  std::vector<std::string> environment;
  for (const char* name : names) {
    if (const char* value = g_getenv(name)) environment.push_back(std::string(name) + "=" + value);
  }
  return environment;
}

const char* programOf(MediaKind kind) {
  return kind == MediaKind::Movie ? "/fit-movie" : "/fit-worker";
}

std::vector<char*> pointersTo(std::vector<std::string>* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

WorkerProcess::WorkerProcess(Listener processListener) : listener(std::move(processListener)) {}

WorkerProcess::~WorkerProcess() {
  if (readSource != 0) g_source_remove(readSource);
  if (exitSource != 0) g_source_remove(exitSource);
  if (process == 0) return;
  ::kill(process, SIGKILL);
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
}

bool WorkerProcess::start(const std::string& folder, const WorkerRequest& request, int input,
                          int output, std::string* error) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    *error = strerror(errno);
    return false;
  }
  lines = Descriptor(ends[0]);
  const Descriptor theirs(ends[1]);
  fcntl(ends[1], F_SETFL, 0);  // the worker's end may wait
  std::vector<std::string> words = wordsOf(request);
  words.insert(words.begin(), folder + programOf(request.kind));
  std::vector<std::string> environment = workerEnvironment(request.kind);
  GError* failure = nullptr;
  const gboolean isStarted = g_spawn_async_with_fds(
      nullptr, pointersTo(&words).data(), pointersTo(&environment).data(),
      G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &process, input, output, theirs.get(), &failure);
  if (isStarted == FALSE) {
    const ErrorRef owned(failure);
    *error = failure->message;
    return false;
  }
  readSource =
      g_unix_fd_add(lines.get(), static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), onReadable, this);
  exitSource = g_child_watch_add(process, onExit, this);
  return true;
}

void WorkerProcess::kill() const {
  if (process != 0) ::kill(process, SIGKILL);
}

// Returns false at the end of what it tells.
bool WorkerProcess::readLines() {
  char piece[4096];
  const ssize_t count = read(lines.get(), piece, sizeof piece);
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  for (ssize_t i = 0; i < count; ++i) {
    if (piece[i] != '\n') {
      if (unfinishedLine.size() < kLongestLine) unfinishedLine += piece[i];
      continue;
    }
    takeReportLine(unfinishedLine, &report);
    unfinishedLine.clear();
  }
  if (count > 0 && listener.onReport) listener.onReport(report);
  return count > 0;
}

gboolean WorkerProcess::onReadable(gint, GIOCondition, gpointer data) {
  auto* self = static_cast<WorkerProcess*>(data);
  if (self->readLines()) return G_SOURCE_CONTINUE;
  self->readSource = 0;
  self->endWhenDone();
  return G_SOURCE_REMOVE;
}

void WorkerProcess::onExit(GPid, gint, gpointer data) {
  auto* self = static_cast<WorkerProcess*>(data);
  self->exitSource = 0;
  self->process = 0;
  self->endWhenDone();
}

void WorkerProcess::endWhenDone() {
  if (readSource == 0 && exitSource == 0) listener.onEnd(report);
}
