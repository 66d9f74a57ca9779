// A service program for tests of what ends a process.
//
//   vela_test_service NAME TICK_MS LOG
//
// Publishes its methods in "/". Every TICK_MS it looks whether a handler is running, and if none is
// it unregisters and ends with status 0, threads or not; 0: it stays. What happens is appended to
// LOG, one line each.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "vela/vela.h"

namespace {

const char* gLogPath;
VSMessage* gKept;
int gNested;

void log(const std::string& text) {
  const std::string line = text + "\n";
  const int fd = open(gLogPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    abort();
  }
  close(fd);
}

// Every third request is answered in a nested loop, every third from a thread.
bool work(VSHandle* handle, VSMessage* message, void*) {
  const std::string id = VSMessageGetPayload(message);
  log(id);
  const int kind = id.back() % 3;
  if (kind == 0) {
    ++gNested;
    g_main_context_iteration(nullptr, FALSE);
    --gNested;
  } else if (kind == 1) {
    VSMessageRef(message);
    std::thread([handle, message, id] {
      VSMessageReply(handle, message, id.c_str(), nullptr);
      VSMessageUnref(message);
    }).detach();
    return true;
  }
  return VSMessageReply(handle, message, id.c_str(), nullptr);
}

bool replyAndDie(VSHandle* handle, VSMessage* message, void*) {
  VSMessageReply(handle, message, "last words", nullptr);
  _exit(0);
}

[[noreturn]] void loopForEver() {
  for (;;) {
    g_main_context_iteration(nullptr, TRUE);
  }
}

// Stays in a nested loop for ever, the first time that a process is asked to.
bool nest(VSHandle* handle, VSMessage* message, void*) {
  std::ifstream log(gLogPath);
  for (std::string line; std::getline(log, line);) {
    if (line == "nest") return VSMessageReply(handle, message, "not again", nullptr);
  }
  ::log("nest");
  loopForEver();
}

// Has a thread end the process and stays in a nested loop for ever.
bool dieElsewhere(VSHandle*, VSMessage*, void*) {
  std::thread([] { exit(1); }).detach();
  loopForEver();
}

// Replies from a thread, once the file is there that the payload names.
bool answerWhenToldTo(VSHandle* handle, VSMessage* message, void*) {
  VSMessageRef(message);
  std::thread([handle, message] {
    while (access(VSMessageGetPayload(message), F_OK) != 0) {
      usleep(2000);
    }
    VSMessageReply(handle, message, "told", nullptr);
    VSMessageUnref(message);
  }).detach();
  return true;
}

// Ends the process without a word.
bool die(VSHandle*, VSMessage*, void*) {
  exit(1);
}

// Calls without waiting and ends by exit(): the call must still go out.
bool callAndExit(VSHandle* handle, VSMessage* message, void*) {
  VSMessageReply(handle, message, "{}", nullptr);
  VSCall(handle, VSMessageGetPayload(message), "from exit", nullptr, nullptr, nullptr, nullptr);
  exit(0);
}

// A forked child that tries to reply and then ends by exit() must not hang.
bool forkAndExit(VSHandle* handle, VSMessage* message, void*) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    exit(VSMessageReply(handle, message, "from the child", nullptr) ? 1 : 42);
  }
  int status = 0;
  waitpid(child, &status, 0);
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return VSMessageReply(handle, message, std::to_string(code).c_str(), nullptr);
}

bool keep(VSHandle*, VSMessage* message, void*) {
  VSMessageRef(message);
  gKept = message;
  return true;
}

bool callLost(VSHandle* handle, VSMessage* message, void*) {
  const char* name = VSMessageGetErrorName(message);
  log(std::string("call: ") + (name != nullptr ? name : "answered"));
  VSError error;
  VSErrorInit(&error);
  const bool sent = VSMessageReply(handle, gKept, "{}", &error);
  log(std::string("reply: ") + (sent ? "sent" : error.name));
  VSErrorFree(&error);
  return true;
}

// Leaves one call under way for ever.
bool callSelf(VSHandle* handle, VSMessage* message, void* uri) {
  VSCall(handle, static_cast<const char*>(uri), "", callLost, nullptr, nullptr, nullptr);
  return VSMessageReply(handle, message, "{}", nullptr);
}

const VSMethod kMethods[] = {{"work", work, 0},
                             {"replyAndDie", replyAndDie, 0},
                             {"nest", nest, 0},
                             {"die", die, 0},
                             {"callAndExit", callAndExit, 0},
                             {"forkAndExit", forkAndExit, 0},
                             {"keep", keep, 0},
                             {"callSelf", callSelf, 0},
                             {"dieElsewhere", dieElsewhere, 0},
                             {"answerWhenToldTo", answerWhenToldTo, 0},
                             {}};

gboolean tick(gpointer data) {
  if (gNested > 0) {
    return G_SOURCE_CONTINUE;
  }
  VSError error;
  VSUnregister(static_cast<VSHandle*>(data), &error);
  exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  gLogPath = argv[3];
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  VSHandle* handle = nullptr;
  VSError error;
  std::string keepUri = std::string("tarn://") + argv[1] + "/keep";
  if (!VSRegisterPubPriv(argv[1], &handle, false, &error)) {
    VSErrorPrint(&error, stderr);
    return 3;
  }
  if (atoi(argv[2]) > 0) {
    g_timeout_add(static_cast<guint>(atoi(argv[2])), tick, handle);
  }
  if (!VSRegisterCategory(handle, "/", kMethods, nullptr, nullptr, &error) ||
      !VSCategorySetData(handle, "/", keepUri.data(), &error) ||
      !VSGmainAttach(handle, loop, &error)) {
    VSErrorPrint(&error, stderr);
    return 4;
  }
  g_main_loop_run(loop);
  return 5;
}
