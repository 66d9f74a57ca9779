#include "src/framework/program.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

struct Pipe {
  int readEnd;
  int writeEnd;

  bool open() {
    int ends[2];
    if (pipe(ends) != 0) return false;
    readEnd = ends[0];
    writeEnd = ends[1];
    return true;
  }
  void close() const {
    ::close(readEnd);
    ::close(writeEnd);
  }
};

char buf[65];

// Until the program is exchanged only the forking thread lives on, and locks that another one held
// stay locked for ever: no logging, no bus. Memory may be taken, as fork() keeps the allocator
// whole.
[[noreturn]] void runChild(const Pipe& output, const Pipe& error, int niceInc, Program* program) {
  if (niceInc != 0) nice(niceInc);
  close(output.readEnd);
  dup2(output.writeEnd, STDOUT_FILENO);
  close(error.readEnd);
  dup2(error.writeEnd, STDERR_FILENO);
  program->exec();
  exit(-1);
}

}  // namespace

int ProgramExec::exec() {
  return execvp(file, argv);
}

int execProgram(std::string& /*out*/, std::string& err, int* status, int niceInc,
                Program* program) {
  Pipe output;
  Pipe error;
  if (!output.open() || !error.open()) return -1;

  const pid_t child = fork();
  if (child == -1) {
    output.close();
    error.close();
    return -1;
  }
  if (child == 0) runChild(output, error, niceInc, program);

  close(output.writeEnd);
  close(error.writeEnd);
  ssize_t length;
  while ((length = read(error.readEnd, buf, sizeof buf - 1)) > 0) {
    buf[length] = '\0';
    err += buf;
  }
  return waitpid(child, status, WUNTRACED);
}

int execProgram(std::string& out, std::string& err, int* status, int niceInc, const char* file,
                char* const* argv) {
  ProgramExec program(file, argv);
  return execProgram(out, err, status, niceInc, &program);
}
