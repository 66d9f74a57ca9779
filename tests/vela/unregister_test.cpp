#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <thread>

#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;

namespace {

const VSMethod kEcho[] = {{"echo", echo, 0}, {}};

std::shared_ptr<BusClient::Pending> start(BusClient& client, const std::string& destination,
                                          const char* method, const char* payload) {
  const auto call = client.start(destination, "/", kService, method, g_variant_new("(s)", payload));
  client.sync();
  return call;
}

// Binds a datagram socket, has the service unregister, and returns what arrived.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path) : fd(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), path.size());
    if (path[0] == '@') {
      address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), size), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~NotifySocket() { close(fd); }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  std::string received() const {
    char buffer[64];
    const ssize_t size = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
    return size < 0 ? "nothing" : std::string(buffer, static_cast<size_t>(size));
  }

 private:
  int fd;
};

}  // namespace

TEST_F(VelaTest, EverythingReceivedIsAnswered) {
  serve(kEcho);
  BusClient client(bus.address());
  std::vector<std::shared_ptr<BusClient::Pending>> calls;
  for (int i = 0; i < 100; ++i) {
    calls.push_back(start(client, kService, "echo", std::to_string(i).c_str()));
  }
  EXPECT_TRUE(unregister());
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(client.wait(calls[static_cast<size_t>(i)]).reply, std::to_string(i));
  }
  EXPECT_TRUE(client.waitForName(kService, false));
}

TEST_F(VelaTest, NeverAttachedAnswersToo) {
  registerService();
  publish(kEcho);
  BusClient client(bus.address());
  const auto call = start(client, kService, "echo", "hi");
  const auto wrong = start(client, kService, "nothing", "");
  EXPECT_TRUE(unregister());
  EXPECT_EQ(client.wait(call).reply, "hi");
  EXPECT_EQ(client.wait(wrong).errorName, std::string(kPrefix) + "UnknownMethod");
}

TEST_F(VelaTest, LoopThatIsGoneDoesNotMatter) {
  serve(kEcho);
  BusClient client(bus.address());
  const auto call = start(client, kService, "echo", "hi");
  g_main_loop_unref(loop);
  EXPECT_TRUE(unregister());
  EXPECT_EQ(client.wait(call).reply, "hi");
  loop = g_main_loop_new(nullptr, FALSE);
}

TEST_F(VelaTest, WaitsForThreadsThatReplyLater) {
  static std::thread worker;
  static std::atomic<bool> unregisterRuns;
  static std::atomic<bool> finished;
  unregisterRuns = false;
  finished = false;
  const VSMethodFunction later = [](VSHandle* own, VSMessage* message, void*) {
    VSMessageRef(message);
    worker = std::thread([own, message] {
      while (!unregisterRuns) {
        std::this_thread::yield();
      }
      BusClient other(getenv("DBUS_SESSION_BUS_ADDRESS"));
      EXPECT_TRUE(other.waitForName(kService, false));  // deep inside VSUnregister by now
      EXPECT_TRUE(VSMessageReply(own, message, "done", nullptr));
      finished = true;
      VSMessageUnref(message);
    });
    return true;
  };
  const VSMethod methods[] = {{"later", later, 0}, {}};
  serve(methods);
  BusClient client(bus.address());
  const auto call = start(client, kService, "later", "");
  runUntil([] { return worker.joinable(); });
  unregisterRuns = true;
  EXPECT_TRUE(unregister());
  EXPECT_TRUE(finished);
  worker.join();
  EXPECT_EQ(client.wait(call).reply, "done");
}

TEST_F(VelaTest, HandlersMayRunNestedLoopsMeanwhile) {
  const VSMethodFunction nested = [](VSHandle* own, VSMessage* message, void*) {
    GMainLoop* inner = g_main_loop_new(nullptr, FALSE);
    const GSourceFunc quit = [](gpointer data) -> gboolean {
      g_main_loop_quit(static_cast<GMainLoop*>(data));
      return G_SOURCE_REMOVE;
    };
    g_timeout_add(5, quit, inner);
    g_main_loop_run(inner);
    g_main_loop_unref(inner);
    return VSMessageReply(own, message, VSMessageGetPayload(message), nullptr);
  };
  const VSMethod methods[] = {{"nested", nested, 0}, {}};
  serve(methods);
  BusClient client(bus.address());
  std::vector<std::shared_ptr<BusClient::Pending>> calls;
  for (int i = 0; i < 30; ++i) {
    calls.push_back(start(client, kService, "nested", std::to_string(i).c_str()));
  }
  EXPECT_TRUE(unregister());
  for (int i = 0; i < 30; ++i) {
    EXPECT_EQ(client.wait(calls[static_cast<size_t>(i)]).reply, std::to_string(i));
  }
}

TEST_F(VelaTest, UniqueNameIsServedWhileLingering) {
  serve(kEcho);
  BusClient client(bus.address());
  const std::string unique = client.ownerOf(kService);
  Result result;
  std::thread caller([&] {
    EXPECT_TRUE(client.waitForName(kService, false));
    result = client.call(unique, "/", kService, "echo", "late");
  });
  const gint64 before = g_get_monotonic_time();
  EXPECT_TRUE(unregister());
  EXPECT_GE(g_get_monotonic_time() - before, 95 * 1000);
  caller.join();
  EXPECT_EQ(result.reply, "late");
}

TEST_F(VelaTest, LingersUntilTheUniqueNameIsLeftAlone) {
  serve(kEcho);
  BusClient client(bus.address());
  const std::string unique = client.ownerOf(kService);
  // Sent before it was answered, so the service has heard of the client later than this.
  gint64 heardOf = g_get_monotonic_time();
  std::thread caller([&] {
    EXPECT_TRUE(client.waitForName(kService, false));
    const gint64 end = heardOf + 400 * 1000;
    for (gint64 sent = 0; sent < end; heardOf = sent) {
      sent = g_get_monotonic_time();
      if (client.call(unique, "/", kService, "echo", "late").reply != "late") {
        // Only a machine too busy to run the client was silent.
        EXPECT_GE(g_get_monotonic_time() - heardOf, 100 * 1000);
        return;
      }
    }
  });
  EXPECT_TRUE(unregister());
  caller.join();
}

TEST_F(VelaTest, DoesNotWaitForHandlersBelowOnTheStack) {
  static std::vector<std::string> answers;
  const VSMethodFunction outer = [](VSHandle* given, VSMessage* message, void*) {
    VSMessageRef(message);  // even a kept one
    g_main_context_iteration(nullptr, TRUE);
    Error error;
    const bool sent = VSMessageReply(given, message, "{}", error.out());
    answers.push_back(sent ? "sent" : error.name());
    VSMessageUnref(message);
    return true;
  };
  const VSMethodFunction inner = [](VSHandle* given, VSMessage* message, void*) {
    VSMessageReply(given, message, "inner", nullptr);
    EXPECT_TRUE(VSUnregister(given, nullptr));
    return true;
  };
  const VSMethod methods[] = {{"outer", outer, 0}, {"inner", inner, 0}, {"echo", echo, 0}, {}};
  serve(methods);
  BusClient client(bus.address());
  const auto outerCall = start(client, kService, "outer", "");
  const auto innerCall = start(client, kService, "inner", "");
  const auto waiting = start(client, kService, "echo", "waiting");
  handle = nullptr;  // the inner handler releases it
  runUntil([] { return !answers.empty(); });
  EXPECT_EQ(answers[0], std::string(kPrefix) + "Disconnected");
  EXPECT_EQ(client.wait(outerCall).errorName, std::string(kPrefix) + "NoReply");
  EXPECT_EQ(client.wait(innerCall).reply, "inner");
  EXPECT_EQ(client.wait(waiting).reply, "waiting");
}

TEST_F(VelaTest, SecondCallFromAHandlerFails) {
  static int refused;
  refused = 0;
  const VSMethodFunction again = [](VSHandle* own, VSMessage* message, void*) {
    refused += VSUnregister(own, nullptr) ? 0 : 1;
    return VSMessageReply(own, message, "{}", nullptr);
  };
  const VSMethod methods[] = {{"again", again, 0}, {}};
  serve(methods);
  BusClient client(bus.address());
  const auto call = start(client, kService, "again", "");
  EXPECT_TRUE(unregister());
  EXPECT_EQ(refused, 1);
  EXPECT_TRUE(client.wait(call).ok);
}

TEST_F(VelaTest, BusDyingMeanwhileEndsTheWait) {
  static VSMessage* kept;
  const VSMethodFunction keep = [](VSHandle*, VSMessage* message, void* data) {
    VSMessageRef(message);
    kept = message;
    static_cast<tarn::test::PrivateBus*>(data)->stop();
    return true;
  };
  const VSMethod methods[] = {{"keep", keep, 0}, {}};
  serve(methods, &bus);
  BusClient client(bus.address());
  start(client, kService, "keep", "");
  Error error;
  EXPECT_FALSE(unregister(error.out()));
  EXPECT_EQ(error.name(), std::string(kPrefix) + "Disconnected");
  VSMessageUnref(kept);
}

TEST_F(VelaTest, ServiceManagerIsToldOnAPathAndOnAnAbstractSocket) {
  const std::string unique = "tarn-vela-test-" + std::to_string(getpid());
  for (const std::string& path : {bus.directory() + "/notify", "@" + unique}) {
    const NotifySocket socket(path);
    registerService();
    EXPECT_TRUE(unregister());
    EXPECT_EQ(socket.received(), "STOPPING=1") << path;
    EXPECT_EQ(socket.received(), "nothing");
  }
}
