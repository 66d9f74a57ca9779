#include <time.h>

#include <vector>

#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;
using testing::ElementsAreArray;

namespace {

const VSMethod kEcho[] = {{"echo", echo, 0}, {}};

// What a handler that runs a nested loop saw.
struct Nesting {
  int depth = 0;
  int deepest = 0;
  bool released = false;
  double cpuAtLimitMs = -1;
  std::vector<std::string> order;
};

double threadCpuMs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

gboolean raise(gpointer flag) {
  *static_cast<bool*>(flag) = true;
  return G_SOURCE_REMOVE;
}

// Stays in a nested loop until the handler at the limit has been there for a while.
bool nest(VSHandle* handle, VSMessage* message, void* data) {
  auto* nesting = static_cast<Nesting*>(data);
  nesting->order.emplace_back(VSMessageGetPayload(message));
  nesting->deepest = std::max(nesting->deepest, ++nesting->depth);
  if (nesting->depth == 8 && !nesting->released) {
    bool over = false;
    g_timeout_add(200, raise, &over);
    const double before = threadCpuMs();
    while (!over) {
      g_main_context_iteration(nullptr, TRUE);
    }
    nesting->cpuAtLimitMs = threadCpuMs() - before;
    nesting->released = true;
  }
  while (!nesting->released) {
    g_main_context_iteration(nullptr, TRUE);
  }
  --nesting->depth;
  return VSMessageReply(handle, message, "{}", nullptr);
}

// Without a time limit each: GLib looks at every timer whenever anything happens.
std::vector<std::shared_ptr<BusClient::Pending>> startMany(BusClient& client, const char* method,
                                                           int count, const std::string& payload) {
  std::vector<std::shared_ptr<BusClient::Pending>> calls;
  for (int i = 0; i < count; ++i) {
    calls.push_back(client.start(kService, "/", kService, method,
                                 g_variant_new("(s)", (payload + std::to_string(i)).c_str()),
                                 G_MAXINT));
  }
  client.sync();
  return calls;
}

}  // namespace

TEST_F(VelaTest, EightHandlersDeepTheRestWaitsInOrderWithoutSpinning) {
  static const VSMethod kNest[] = {{"nest", nest, 0}, {}};
  Nesting nesting;
  serve(kNest, &nesting);
  during([](BusClient& client) {
    for (const auto& call : startMany(client, "nest", 20, "")) {
      EXPECT_TRUE(client.wait(call).ok);
    }
  });
  EXPECT_EQ(nesting.deepest, 8);
  std::vector<std::string> expected;
  for (int i = 0; i < 20; ++i) {
    expected.push_back(std::to_string(i));
  }
  EXPECT_THAT(nesting.order, ElementsAreArray(expected));
  EXPECT_GE(nesting.cpuAtLimitMs, 0);
  EXPECT_LT(nesting.cpuAtLimitMs, 50) << "of 200 ms";
}

TEST_F(VelaTest, OneRequestADispatch) {
  static int handled;
  handled = 0;
  const VSMethodFunction count = [](VSHandle* own, VSMessage* message, void*) {
    ++handled;
    return VSMessageReply(own, message, "{}", nullptr);
  };
  const VSMethod methods[] = {{"count", count, 0}, {}};
  registerService();
  BusClient client(bus.address());
  const auto calls = startMany(client, "count", 3, "");
  publish(methods);
  attach();
  int before = 0;
  runUntil([&] {
    EXPECT_LE(handled, before + 1);
    before = handled;
    return handled == 3;
  });
  EXPECT_TRUE(client.wait(calls[2]).ok);
  unregister();
}

TEST_F(VelaTest, BeyondFourThousandAndNinetySixWaitingIsRefusedAtOnce) {
  registerService();
  BusClient client(bus.address());
  auto calls = startMany(client, "echo", 4096, "");
  EXPECT_FALSE(client.isDone(calls.front()));
  const Result refused = callService(client, "echo");
  EXPECT_EQ(refused.errorName, std::string(kPrefix) + "LimitsExceeded");
  publish(kEcho);
  attach();
  runUntil([&] { return client.isDone(calls.back()); });
  int right = 0;
  for (int i = 0; i < 4096; ++i) {
    right += client.wait(calls[static_cast<size_t>(i)]).reply == std::to_string(i) ? 1 : 0;
  }
  EXPECT_EQ(right, 4096);
}

TEST_F(VelaTest, BeyondThirtyTwoMegabytesWaitingIsRefusedAtOnce) {
  registerService();
  BusClient client(bus.address());
  const std::string large((64 << 10) - 16, 'x');
  const auto calls = startMany(client, "echo", 512, large);
  EXPECT_FALSE(client.isDone(calls.front()));
  EXPECT_EQ(callService(client, "echo", large).errorName, std::string(kPrefix) + "LimitsExceeded");
  publish(kEcho);
  attach();
  runUntil([&] { return client.isDone(calls.back()); });
  for (const auto& call : calls) {
    EXPECT_TRUE(client.wait(call).ok);
  }
}

TEST_F(VelaTest, RequestOfSixtyFourKibibytesIsTheLargest) {
  serve(kEcho);
  during([](BusClient& client) {
    const std::string largest(64 << 10, 'x');
    EXPECT_EQ(callService(client, "echo", largest).reply, largest);
    EXPECT_EQ(callService(client, "echo", largest + "x").errorName,
              std::string(kPrefix) + "LimitsExceeded");
    GVariant* bytes =
        g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, largest.data(), largest.size(), 1);
    GVariant* twice[] = {bytes, bytes};
    EXPECT_EQ(
        client.callRaw(kService, "/", kService, "echo", g_variant_new_tuple(twice, 2)).errorName,
        std::string(kPrefix) + "LimitsExceeded");
    EXPECT_TRUE(callService(client, "echo").ok);
  });
}

TEST_F(VelaTest, WrongCallsGetTheStandardErrors) {
  serve(kEcho);
  publish(kEcho, "/com/example/deep");
  during([](BusClient& client) {
    const auto error = [&](const char* path, const char* interface, const char* member,
                           GVariant* arguments) {
      const std::string name =
          client.callRaw(kService, path, interface, member, arguments).errorName;
      return name.substr(std::min(name.size(), sizeof kPrefix - 1));
    };
    const auto text = [] { return g_variant_new("(s)", "{}"); };
    EXPECT_EQ(error("/nowhere", kService, "echo", text()), "UnknownObject");
    EXPECT_EQ(error("/com/example", kService, "echo", text()), "UnknownObject");
    EXPECT_EQ(error("/", "com.example.other", "echo", text()), "UnknownInterface");
    EXPECT_EQ(error("/", kService, "nothing", text()), "UnknownMethod");
    EXPECT_EQ(error("/", "", "nothing", text()), "UnknownMethod");
    EXPECT_EQ(error("/", kService, "echo", nullptr), "InvalidArgs");
    EXPECT_EQ(error("/", kService, "echo", g_variant_new("(i)", 1)), "InvalidArgs");
    EXPECT_EQ(error("/", kService, "echo", g_variant_new("(ss)", "a", "b")), "InvalidArgs");
    EXPECT_EQ(error("/", "", "echo", nullptr), "InvalidArgs");
    EXPECT_EQ(
        error("/", "org.freedesktop.DBus.Properties", "GetAll", g_variant_new("(s)", kService)),
        "UnknownInterface");
    EXPECT_EQ(client.call(kService, "/", "", "echo", "by member").reply, "by member");
    EXPECT_EQ(client.call(kService, "/com/example/deep", kService, "echo", "deep").reply, "deep");
  });
}

TEST_F(VelaTest, HandlerThatRefusesAnswersWithAnError) {
  const VSMethodFunction refuse = [](VSHandle*, VSMessage*, void*) { return false; };
  const VSMethodFunction replyThenRefuse = [](VSHandle* own, VSMessage* message, void*) {
    VSMessageReply(own, message, "replied", nullptr);
    return false;
  };
  const VSMethod methods[] = {{"refuse", refuse, 0}, {"replied", replyThenRefuse, 0}, {}};
  serve(methods);
  during([](BusClient& client) {
    EXPECT_EQ(callService(client, "refuse").errorName, std::string(kPrefix) + "UnknownMethod");
    EXPECT_EQ(callService(client, "replied").reply, "replied");
  });
  unregister();
}
