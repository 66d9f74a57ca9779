// TaskBase is one request at work: parse the parameters, prepare, run, reply.
//
// Thread: one at a time; a task that runs on moves to its own thread whole.
// Owns: its request context. A live task keeps the daemon from ending.
#ifndef SRC_FRAMEWORK_TASK_BASE_H
#define SRC_FRAMEWORK_TASK_BASE_H

#include "src/framework/vs_ctx.h"

enum LaunchResult {
  LaunchRunning = 1,  // goes on in a thread of its own and deletes itself at the end
  LaunchFailed = 2,
  LaunchDone = 3,  // finished, reply included
};

class TaskBase {
 public:
  // Takes over ctx, which may be null, and counts the task as alive.
  explicit TaskBase(VSCtx* ctx);
  virtual ~TaskBase();
  TaskBase(const TaskBase&) = delete;
  TaskBase& operator=(const TaskBase&) = delete;

  // Takes the task through parseVSParameters, init and run. Answers a failure of the first two;
  // run() answers for itself. Called once.
  virtual LaunchResult launch();

  // Sends the success reply.
  virtual void replySuccess();

  // Reads the request's parameters. On failure sets the error message and returns false.
  virtual bool parseVSParameters(dsjson::JValue& params) = 0;

  // Checks and prepares what run() needs. On failure sets the error message and returns false.
  virtual bool init() = 0;

  // Does the work and sends the reply.
  virtual LaunchResult run() = 0;

 protected:
  // Parses the payload and hands it to the virtual parseVSParameters.
  bool parseVSParameters();

  VSCtx* ctx;
};

#endif
