#include "src/framework/task_base.h"

#include "src/service/transcode_server.h"

// Counted here, so that this room needs nothing of the service's; declared where the inactivity
// timer looks.
int TranscodeServer::taskCount = 0;

TaskBase::TaskBase(VSCtx* context) : ctx(context) {
  g_atomic_int_add(&TranscodeServer::taskCount, 1);
}

TaskBase::~TaskBase() {
  delete ctx;
  g_atomic_int_add(&TranscodeServer::taskCount, -1);
}

LaunchResult TaskBase::launch() {
  if (!parseVSParameters() || !init()) {
    ctx->replyFail();
    return LaunchFailed;
  }
  return run();
}

void TaskBase::replySuccess() {
  ctx->replySuccess();
}

bool TaskBase::parseVSParameters() {
  dsjson::JValue params;
  return ctx->parseVSParameters(params) && parseVSParameters(params);
}
