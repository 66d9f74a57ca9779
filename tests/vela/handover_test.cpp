// A service that ends hands what it has not begun over to its next process.
#include <algorithm>

#include "tests/support/temp_dir.h"
#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;
using tarn::test::PrivateBus;
using testing::ElementsAre;

namespace {

PrivateBus::Options nextProcess(const std::string& command) {
  return {.services = {{kService, command}},
          .serviceDirs = {},
          .environment = {{"ASAN_OPTIONS", "detect_leaks=0"}}};
}

const VSMethod kHere[] = {{"work", echo, 0}, {"die", echo, 0}, {}};

// Made before the bus, whose next process writes into it.
struct Log {
  const TempDir dir;
  const std::string log = dir / "log";
};

class HandoverTest : protected Log, public VelaTest {
 protected:
  HandoverTest()
      : VelaTest(nextProcess(std::string(SERVICE_PROGRAM) + " " + kService + " 0 " + log)),
        client(bus.address()) {
    serve(kHere);
    unique = client.ownerOf(kService);
  }

  // A call that waits here when it returns.
  std::shared_ptr<BusClient::Pending> start(const char* method, const std::string& payload) {
    auto call =
        client.start(kService, "/", kService, method, g_variant_new("(s)", payload.c_str()));
    client.sync();
    return call;
  }

  BusClient client;
  std::string unique;
};

}  // namespace

TEST_F(HandoverTest, WhatWasNotBegunIsAnsweredByTheNextProcess) {
  std::vector<std::shared_ptr<BusClient::Pending>> calls;
  std::vector<std::string> ids;
  for (int i = 0; i < 10; ++i) {
    ids.push_back("call " + std::to_string(i));
    calls.push_back(start("work", ids.back()));
  }
  EXPECT_TRUE(unregister());
  for (size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(client.wait(calls[i]).reply, ids[i]);
  }
  EXPECT_EQ(linesOf(log), ids) << "there, once and in order";
  EXPECT_NE(client.ownerOf(kService), unique);
}

TEST_F(HandoverTest, CallsOfTheUniqueNameGoOnToo) {
  Result result;
  std::thread caller([&] {
    EXPECT_TRUE(client.waitForName(kService, false));
    result = client.call(unique, "/", kService, "work", "late");
  });
  EXPECT_TRUE(unregister());
  caller.join();
  EXPECT_EQ(result.reply, "late");
  EXPECT_THAT(linesOf(log), ElementsAre("late"));
}

TEST_F(HandoverTest, CallsThatWantNoReplyGoOnToo) {
  client.post(kService, "/", kService, "work", "unanswered");
  client.sync();
  EXPECT_TRUE(unregister());
  EXPECT_THAT(linesOf(log), ElementsAre("unanswered"));
}

TEST_F(HandoverTest, ErrorsOfTheNextProcessAreRelayed) {
  const auto unknown = start("nothing", "{}");
  // Ends the next process without a word: it must not be tried here as well.
  const auto fatal = start("die", "{}");
  EXPECT_TRUE(unregister());
  const Result result = client.wait(unknown);
  EXPECT_EQ(result.errorName, std::string(kPrefix) + "UnknownMethod");
  EXPECT_EQ(result.errorMessage, "No such method: nothing");
  EXPECT_EQ(client.wait(fatal).errorName, std::string(kPrefix) + "NoReply");
}

TEST_F(HandoverTest, BusDyingMeanwhileEndsTheWait) {
  start("nest", "{}");
  std::thread killer([this] {
    EXPECT_TRUE(client.waitForName(kService, false));
    EXPECT_TRUE(client.waitForName(kService, true));
    // The bus is stopped by the thread that made it: its child is what ends it here.
    kill(bus.pid(), SIGKILL);
  });
  Error error;
  EXPECT_FALSE(unregister(error.out()));
  EXPECT_EQ(error.name(), std::string(kPrefix) + "Disconnected");
  killer.join();
}

namespace {

class BrokenHandoverTest : public VelaTest {
 protected:
  BrokenHandoverTest() : VelaTest(nextProcess("/nonexistent/program")) {}
};

}  // namespace

TEST_F(BrokenHandoverTest, WhatTheBusCannotDeliverIsHandledHere) {
  serve(kHere);
  BusClient client(bus.address());
  const auto call = client.start(kService, "/", kService, "work", g_variant_new("(s)", "hi"));
  client.sync();
  EXPECT_TRUE(unregister());
  EXPECT_EQ(client.wait(call).reply, "hi");
}
