// Runs a program in a child process and collects what it writes to its standard error.
//
// Thread: any, but the read buffer is one for the process: what two calls read at the same moment
// may get mixed up.
// Errors: by result; nothing is retried.
#ifndef SRC_FRAMEWORK_PROGRAM_H
#define SRC_FRAMEWORK_PROGRAM_H

#include <string>

// What a child process does. Lives on its user's stack; never deleted through the base.
class Program {
 public:
  // Called in the child. Replaces the process, or returns when that failed.
  virtual int exec() = 0;

 protected:
  ~Program() = default;
};

// A program file that is looked up in PATH.
class ProgramExec final : public Program {
 public:
  // Borrows both; argv ends with a null pointer.
  ProgramExec(const char* programFile, char* const* arguments)
      : file(programFile), argv(arguments) {}

  int exec() override;

 private:
  const char* file;
  char* const* argv;
};

// Runs the program in a child whose priority is lowered by niceInc and waits until it has closed
// its standard error and has ended or was stopped. Returns the child's process id and stores its
// wait status, or returns -1 when no pipe or child could be made. A program that cannot be started
// is a child that exits with 255.
//
// err: the child's standard error is appended, in pieces of 64 bytes; in each, what follows a NUL
// is lost. out: left alone. The child's standard output is a pipe that nobody reads, so a child
// that writes more to it than a pipe holds never ends. Each call leaves the read ends of the two
// pipes open.
int execProgram(std::string& out, std::string& err, int* status, int niceInc, Program* program);
int execProgram(std::string& out, std::string& err, int* status, int niceInc, const char* file,
                char* const* argv);

#endif
