#include "tests/ffmpeg/program_run.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

StartedProgram::StartedProgram(const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment) {
  std::string outPath = fs::temp_directory_path() / "ffmpeg-out-XXXXXX";
  outFd = mkostemp(outPath.data(), O_CLOEXEC);
  unlink(outPath.c_str());  // the descriptor is enough
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  child = fork();
  if (child == 0) {
    dup2(outFd, STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    for (const std::string& entry : environment) {
      const size_t equals = entry.find('=');
      setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
    std::vector<char*> argv = {const_cast<char*>("ffmpeg")};
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execv(FFMPEG_UNDER_TEST, argv.data());
    _exit(126);
  }
  close(ends[1]);
  errFd = ends[0];
}

StartedProgram::~StartedProgram() {
  if (child > 0) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  close(errFd);
  close(outFd);
}

RunResult StartedProgram::wait() {
  RunResult result;
  char piece[4096];
  ssize_t count = 0;
  while ((count = read(errFd, piece, sizeof(piece))) > 0) {
    result.err.append(piece, static_cast<size_t>(count));
  }
  int status = 0;
  waitpid(child, &status, 0);
  child = -1;
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  for (off_t at = 0; (count = pread(outFd, piece, sizeof(piece), at)) > 0; at += count) {
    result.out.append(piece, static_cast<size_t>(count));
  }
  return result;
}

RunResult runFfmpeg(const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment) {
  return StartedProgram(arguments, environment).wait();
}
