#include "src/framework/task_base.h"

#include <gmock/gmock.h>

#include "src/framework/transcode_base.h"
#include "src/service/transcode_server.h"
#include "tests/support/fake_vela.h"

namespace {

using fake_vela::Request;
using testing::ElementsAre;
using testing::IsEmpty;

// Records its calls; its steps succeed or fail as told.
class RecordingTask : public TaskBase {
 public:
  using TaskBase::TaskBase;

  bool parseVSParameters(dsjson::JValue&) override {
    calls.emplace_back("parse");
    if (!parses) ctx->setLastErrorMessage("no parse");
    return parses;
  }
  bool init() override {
    calls.emplace_back("init");
    if (!inits) ctx->setLastErrorMessage("no init");
    return inits;
  }
  LaunchResult run() override {
    calls.emplace_back("run");
    return result;
  }

  bool parses = true;
  bool inits = true;
  LaunchResult result = LaunchDone;
  std::vector<std::string> calls;
};

VSCtx* makeContext(const Request& request) {
  return new VSCtx(fake_vela::handle(), request.message());
}

TEST(TaskBase, IsCountedWhileItLives) {
  const Request request("{}");
  const int before = TranscodeServer::taskCount;
  {
    const RecordingTask task(makeContext(request));
    EXPECT_EQ(TranscodeServer::taskCount, before + 1);
    EXPECT_EQ(request.references(), 1);
  }
  EXPECT_EQ(TranscodeServer::taskCount, before);
  EXPECT_EQ(request.references(), 0);
}

TEST(TaskBase, IsCountedUntilItsRequestIsLetGo) {
  Request request("{}");
  const int before = TranscodeServer::taskCount;
  int counted = -1;
  request.whenReleased([&] { counted = TranscodeServer::taskCount; });
  { const RecordingTask task(makeContext(request)); }
  EXPECT_EQ(counted, before + 1);
}

TEST(TaskBase, WithoutAContextTouchesNoBus) {
  fake_vela::reset();
  const int before = TranscodeServer::taskCount;
  { const RecordingTask task(nullptr); }
  EXPECT_EQ(TranscodeServer::taskCount, before);
  EXPECT_THAT(fake_vela::operations(), IsEmpty());
}

TEST(TaskBase, LaunchParsesInitialisesAndRuns) {
  const Request request("{}");
  RecordingTask task(makeContext(request));
  for (const LaunchResult result : {LaunchRunning, LaunchFailed, LaunchDone}) {
    task.calls.clear();
    task.result = result;
    EXPECT_EQ(task.launch(), result);
    EXPECT_THAT(task.calls, ElementsAre("parse", "init", "run"));
  }
  EXPECT_THAT(request.replies(), IsEmpty());
}

TEST(TaskBase, MalformedPayloadIsAnsweredBeforeAnyStep) {
  const Request request("{");
  RecordingTask task(makeContext(request));
  EXPECT_EQ(task.launch(), LaunchFailed);
  EXPECT_THAT(task.calls, IsEmpty());
  EXPECT_THAT(request.replies(),
              ElementsAre(R"({"returnValue":false,"errorText":"malformed command\n"})"));
}

TEST(TaskBase, FailedParseIsAnsweredOnce) {
  const Request request("{}");
  RecordingTask task(makeContext(request));
  task.parses = false;
  EXPECT_EQ(task.launch(), LaunchFailed);
  EXPECT_THAT(task.calls, ElementsAre("parse"));
  EXPECT_THAT(request.replies(), ElementsAre(R"({"returnValue":false,"errorText":"no parse"})"));
}

TEST(TaskBase, FailedInitIsAnsweredOnce) {
  const Request request("{}");
  RecordingTask task(makeContext(request));
  task.inits = false;
  EXPECT_EQ(task.launch(), LaunchFailed);
  EXPECT_THAT(task.calls, ElementsAre("parse", "init"));
  EXPECT_THAT(request.replies(), ElementsAre(R"({"returnValue":false,"errorText":"no init"})"));
}

TEST(TaskBase, RepliesSuccessThroughItsContext) {
  const Request request("{}");
  RecordingTask(makeContext(request)).replySuccess();
  EXPECT_THAT(request.replies(), ElementsAre(R"({"returnValue":true})"));
}

class FileTask : public TranscodeBase {
 public:
  using TranscodeBase::TranscodeBase;
  bool init() override { return true; }
  LaunchResult run() override {
    files = inFile + " " + outFile;
    return LaunchDone;
  }
  std::string files;
};

TEST(TranscodeBase, ReadsTheTwoFiles) {
  const Request request(R"({"outFile":"b","inFile":"a"})");
  FileTask task(makeContext(request));
  EXPECT_EQ(task.launch(), LaunchDone);
  EXPECT_EQ(task.files, "a b");
}

TEST(TranscodeBase, ReportsTheFileThatIsMissing) {
  const std::pair<const char*, const char*> cases[] = {
      {"{}", "Could not parse param inFile"},
      {"[1]", "Could not parse param inFile"},
      {"3", "Could not parse param inFile"},
      {R"({"outFile":"b"})", "Could not parse param inFile"},
      {R"({"inFile":3,"outFile":"b"})", "Could not parse param inFile"},
      {R"({"inFile":"a\u0000b","outFile":"b"})", "Could not parse param inFile"},
      {R"({"inFile":"a"})", "Could not parse param outFile"},
      {R"({"inFile":"a","outFile":null})", "Could not parse param outFile"},
      {R"({"inFile":"a","outFile":["b"]})", "Could not parse param outFile"}};
  for (const auto& [payload, text] : cases) {
    const Request request(payload);
    FileTask task(makeContext(request));
    EXPECT_EQ(task.launch(), LaunchFailed);
    EXPECT_THAT(request.replies(),
                ElementsAre(std::string(R"({"returnValue":false,"errorText":")") + text + "\"}"));
  }
}

}  // namespace
