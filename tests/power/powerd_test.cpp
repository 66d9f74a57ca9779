// The power service, as its callers and logind see it.
#include <gmock/gmock.h>

#include <csignal>

#include "tests/support/fake_logind.h"
#include "tests/support/wait_until.h"

namespace {

using tarn::test::BusClient;
using tarn::test::PrivateBus;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kPower[] = "com.tarn.power";
constexpr char kDone[] = R"({"returnValue":true})";

std::string lockOf(const std::string& id) {
  return "sleep|tarn-transcode|" + id + " is at work|block";
}

class SystemUnderTest {
 public:
  explicit SystemUnderTest(const std::string& systemBus)
      : bus({.services = {{kPower, POWERD}},
             .serviceDirs = {},
             .environment = {{"DBUS_SYSTEM_BUS_ADDRESS", systemBus}}}),
        client(bus.address()) {}

  BusClient::Result call(const std::string& payload) {
    return client.call(kPower, "/com/tarn/power", kPower, "activityStart", payload);
  }
  std::string start(const std::string& id, int durationMs) {
    return call(R"({ "id": ")" + id + R"(", "duration_ms" : )" + std::to_string(durationMs) + " }")
        .reply;
  }

  PrivateBus bus;
  BusClient client;
};

class PowerdTest : public testing::Test {
 protected:
  FakeLogind logind;
  SystemUnderTest system{logind.address()};
};

}  // namespace

TEST_F(PowerdTest, HoldsALockUntilTheTimeIsOverAndEnds) {
  std::vector<std::string> locks;
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_EQ(system.start("transcode", 1000), kDone);
    locks = logind.locks();
    return !locks.empty();
  }));
  EXPECT_THAT(locks, ElementsAre(lockOf("transcode")));
  EXPECT_TRUE(waitUntil([&] { return logind.locks().empty(); }));
  EXPECT_TRUE(system.client.waitForName(kPower, false));
}

TEST_F(PowerdTest, AFurtherCallExtendsAndNeverShortens) {
  EXPECT_EQ(system.start("long", 10), kDone);
  EXPECT_EQ(system.start("long", 60000), kDone);
  EXPECT_EQ(system.start("long", 10), kDone);
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_EQ(system.start("short", 1000), kDone);
    return logind.locks().size() == 2;
  }));
  EXPECT_TRUE(waitUntil([&] { return logind.locks().size() == 1; }));
  EXPECT_THAT(logind.locks(), ElementsAre(lockOf("long")));
}

TEST_F(PowerdTest, KilledItLeavesNoLockAndComesBackWithTheNextCall) {
  EXPECT_EQ(system.start("transcode", 60000), kDone);
  EXPECT_TRUE(waitUntil([&] { return !logind.locks().empty(); }));
  const pid_t powerd = system.client.processOf(kPower);
  ASSERT_GT(powerd, 0);
  kill(powerd, SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return logind.locks().empty(); }));
  EXPECT_TRUE(system.client.waitForName(kPower, false));
  EXPECT_EQ(system.start("transcode", 60000), kDone);
  EXPECT_TRUE(waitUntil([&] { return !logind.locks().empty(); }));
}

TEST_F(PowerdTest, EndsWithTheBus) {
  EXPECT_EQ(system.start("transcode", 60000), kDone);
  EXPECT_TRUE(waitUntil([&] { return !logind.locks().empty(); }));
  system.bus.stop();
  EXPECT_TRUE(waitUntil([&] { return logind.locks().empty(); }));
}

TEST_F(PowerdTest, WhatItDoesNotUnderstandHoldsNothing) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"no json", "malformed command"},
      {"[]", "id: a name of 1 to 100 bytes is needed"},
      {R"({"id":"","duration_ms":5})", "id: a name of 1 to 100 bytes is needed"},
      {R"({"id":")" + std::string(101, 'x') + R"(","duration_ms":5})",
       "id: a name of 1 to 100 bytes is needed"},
      {R"({"id":"a"})", "duration_ms: a whole number above 0 is needed"},
      {R"({"id":"a","duration_ms":0})", "duration_ms: a whole number above 0 is needed"},
      {R"({"id":"a","duration_ms":1.5})", "duration_ms: a whole number above 0 is needed"},
      {R"({"id":"a","duration_ms":1e400})", "duration_ms: a whole number above 0 is needed"},
  };
  for (const auto& [payload, text] : cases) {
    EXPECT_EQ(system.call(payload).reply, R"({"returnValue":false,"errorText":")" + text + "\"}")
        << payload;
  }
  EXPECT_TRUE(system.client.waitForName(kPower, false));
  EXPECT_THAT(logind.locks(), IsEmpty());
}

TEST_F(PowerdTest, SoManyAtOnceAndNoMore) {
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(system.start(std::to_string(i), 60000), kDone);
  }
  EXPECT_THAT(system.start("another", 60000), HasSubstr("too many activities at once"));
  EXPECT_EQ(system.start("255", 60000), kDone);
}

TEST(PowerdAloneTest, WithoutLogindTheCallSucceedsAndOneWarningIsLogged) {
  const PrivateBus empty;
  for (const std::string& systemBus :
       {empty.address(), std::string("unix:path=/nonexistent/bus")}) {
    SystemUnderTest system(systemBus);
    EXPECT_EQ(system.start("one", 60000), kDone);
    EXPECT_EQ(system.start("two", 60000), kDone);
    const std::string text = "nothing keeps the device awake: ";
    EXPECT_TRUE(waitUntil([&] { return system.bus.log().find(text) != std::string::npos; }));
    EXPECT_EQ(system.start("three", 60000), kDone);
    const std::string log = system.bus.log();
    EXPECT_EQ(log.find(text), log.rfind(text)) << log;
  }
}
