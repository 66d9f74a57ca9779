// What the end of a process must not lose, with the service as a program of its own.
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;
using tarn::test::PrivateBus;
using testing::ElementsAre;

namespace {

class VelaProcessTest : public testing::Test {
 protected:
  VelaProcessTest() : bus(options()), client(bus.address()) {}
  ~VelaProcessTest() override {
    bus.stop();  // ends what is still registered
  }

  std::string logPath() const { return dir / "log"; }
  std::string programLine(const char* name, int tickMs) const {
    return std::string(SERVICE_PROGRAM) + " " + name + " " + std::to_string(tickMs) + " " +
           logPath();
  }
  PrivateBus::Options options() const {
    return {.services = {{"com.example.staying", programLine("com.example.staying", 0)},
                         {"com.example.receiving", programLine("com.example.receiving", 0)},
                         {"com.example.restarting", programLine("com.example.restarting", 20)}},
            .serviceDirs = {},
            // What the parent's threads point to looks leaked to a forked child.
            .environment = {{"ASAN_OPTIONS", "detect_leaks=0"}}};
  }

  BusClient::Result call(const char* service, const char* method, const std::string& payload) {
    return client.call(service, "/", service, method, payload);
  }

  TempDir dir;
  PrivateBus bus;
  BusClient client;
};

}  // namespace

TEST_F(VelaProcessTest, RestartsLoseNoRequestAndRunNoneTwice) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 800;
  std::mutex mutex;
  std::vector<std::string> failures;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      BusClient own(bus.address());
      for (int i = 0; i < kCalls; ++i) {
        const std::string id = std::to_string(thread) + "-" + std::to_string(i);
        const auto result =
            own.call("com.example.restarting", "/", "com.example.restarting", "work", id);
        if (result.reply != id) {
          const std::lock_guard lock(mutex);
          failures.push_back(id + " " + result.errorName + " " + result.errorMessage);
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(failures, ElementsAre());
  std::map<std::string, int> runs;
  for (const std::string& id : linesOf(logPath())) {
    ++runs[id];
  }
  EXPECT_EQ(runs.size(), static_cast<size_t>(kThreads * kCalls));
  for (const auto& [id, count] : runs) {
    EXPECT_EQ(count, 1) << id;
  }
}

TEST_F(VelaProcessTest, ReplyIsOutBeforeTheProcessIsGone) {
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(call("com.example.staying", "replyAndDie", "{}").reply, "last words") << i;
    ASSERT_TRUE(client.waitForName("com.example.staying", false));
  }
}

TEST_F(VelaProcessTest, CallIsOutWhenTheProcessExits) {
  // Running already: the bus drops what waits for an activation when its sender goes.
  ASSERT_TRUE(call("com.example.receiving", "work", "x2").ok);
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(call("com.example.staying", "callAndExit", "tarn://com.example.receiving/work").ok);
    ASSERT_TRUE(client.waitForName("com.example.staying", false));
  }
  ASSERT_TRUE(call("com.example.receiving", "work", "x2").ok);
  const std::vector<std::string> lines = linesOf(logPath());
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "from exit"), 50);
}

TEST_F(VelaProcessTest, ForkedChildThatExitsDoesNotHang) {
  EXPECT_EQ(call("com.example.staying", "forkAndExit", "{}").reply, "42");
  EXPECT_EQ(call("com.example.staying", "work", "x2").reply, "x2") << "the parent lives on";
}

TEST_F(VelaProcessTest, LostBusEndsTheProcessFromTheLoop) {
  std::vector<std::string> variables = bus.environment();
  std::vector<char*> environment;
  for (std::string& variable : variables) {
    environment.push_back(variable.data());
  }
  environment.push_back(nullptr);
  std::string program = SERVICE_PROGRAM;
  std::string name = "com.example.spawned";
  std::string tick = "0";
  std::string log = logPath();
  char* arguments[] = {program.data(), name.data(), tick.data(), log.data(), nullptr};
  pid_t child = -1;
  ASSERT_EQ(posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environment.data()),
            0);
  ASSERT_TRUE(client.waitForName(name, true));
  ASSERT_TRUE(call(name.c_str(), "callSelf", "{}").ok);
  // Its own call came before this one: kept by the time of the reply.
  ASSERT_TRUE(call(name.c_str(), "work", "x2").ok);
  bus.stop();
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), EXIT_FAILURE);
  EXPECT_THAT(linesOf(logPath()),
              ElementsAre("x2", std::string("call: ") + kPrefix + "Disconnected",
                          std::string("reply: ") + kPrefix + "Disconnected"));
}

// Two of the requests end the process while others wait behind them and one is under way, which the
// next process answers.
TEST_F(VelaProcessTest, ExitInAHandlerTakesNoOtherRequestWithIt) {
  const std::string service = "com.example.staying";
  const auto start = [&](const char* method, const std::string& payload) {
    return client.start(service, "/", service, method, g_variant_new("(s)", payload.c_str()));
  };
  // All of them wait for the service's start, so that it finds them in its queue.
  const auto nested = start("nest", "{}");
  std::vector<std::shared_ptr<BusClient::Pending>> fatal;
  std::vector<std::shared_ptr<BusClient::Pending>> others;
  for (int i = 0; i < 2; ++i) {
    fatal.push_back(start("die", "{}"));
    for (int j = 0; j < 5; ++j) {
      others.push_back(start("work", "w" + std::to_string(i) + std::to_string(j)));
    }
  }
  for (const auto& pending : fatal) {
    EXPECT_EQ(client.wait(pending).errorName, std::string(kPrefix) + "NoReply");
  }
  for (const auto& pending : others) {
    EXPECT_TRUE(client.wait(pending).ok);
  }
  EXPECT_EQ(client.wait(nested).reply, "not again");
  auto served = linesOf(logPath());
  std::erase(served, "nest");
  std::sort(served.begin(), served.end());
  EXPECT_EQ(served.size(), others.size());
  EXPECT_EQ(std::unique(served.begin(), served.end()), served.end());
}

TEST_F(VelaProcessTest, ExitOnAnotherThreadLeavesNobodyWithoutAnAnswer) {
  const std::string service = "com.example.staying";
  const auto start = [&](const char* method, const std::string& payload) {
    return client.start(service, "/", service, method, g_variant_new("(s)", payload.c_str()));
  };
  const std::string go = logPath() + ".go";
  const auto working = start("answerWhenToldTo", go);
  const auto fatal = start("dieElsewhere", "{}");
  std::vector<std::shared_ptr<BusClient::Pending>> waiting;
  for (int i = 0; i < 5; ++i) {
    waiting.push_back(start("work", "w" + std::to_string(i)));
  }
  EXPECT_EQ(client.wait(fatal).errorName, std::string(kPrefix) + "Disconnected");
  for (const auto& pending : waiting) {
    EXPECT_TRUE(client.wait(pending).ok);
  }
  EXPECT_FALSE(client.isDone(working)) << "what a thread of its own works at is waited for";
  std::ofstream(go) << "go";
  EXPECT_EQ(client.wait(working).reply, "told");
  std::remove(go.c_str());
  const std::vector<std::string> served = linesOf(logPath());
  EXPECT_EQ(std::count(served.begin(), served.end(), "w0"), 1);
}
