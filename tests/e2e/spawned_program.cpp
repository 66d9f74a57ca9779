#include "tests/e2e/spawned_program.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/wait.h>

#include <csignal>
#include <stdexcept>

namespace {

struct End {
  GMainLoop* loop;
  std::optional<int> status;
};

void onEnd(GPid, gint status, gpointer data) {
  auto* end = static_cast<End*>(data);
  end->status = status;
  g_main_loop_quit(end->loop);
}

gboolean onDeadline(gpointer data) {
  g_main_loop_quit(static_cast<End*>(data)->loop);
  return G_SOURCE_CONTINUE;
}

}  // namespace

SpawnedProgram::SpawnedProgram(const std::string& path, std::vector<std::string> environment,
                               const std::string& logPath) {
  std::string program = path;
  char* arguments[] = {program.data(), nullptr};
  std::vector<char*> variables;
  for (std::string& variable : environment) {
    variables.push_back(variable.data());
  }
  variables.push_back(nullptr);
  const int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const gboolean started =
      g_spawn_async_with_fds(nullptr, arguments, variables.data(), G_SPAWN_DO_NOT_REAP_CHILD,
                             nullptr, nullptr, &child, -1, log, log, nullptr);
  close(log);
  if (!started) throw std::runtime_error("cannot start " + path);
}

SpawnedProgram::~SpawnedProgram() {
  if (child <= 0) return;
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

std::optional<int> SpawnedProgram::waitForEnd(int deadlineMs) {
  End end = {g_main_loop_new(nullptr, FALSE), std::nullopt};
  const guint watch = g_child_watch_add(child, onEnd, &end);
  const guint deadline = g_timeout_add(static_cast<guint>(deadlineMs), onDeadline, &end);
  g_main_loop_run(end.loop);
  g_source_remove(deadline);
  if (end.status) {
    child = -1;
  } else {
    g_source_remove(watch);
  }
  g_main_loop_unref(end.loop);
  return end.status;
}
