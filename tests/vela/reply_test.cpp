#include <atomic>
#include <thread>
#include <vector>

#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;

namespace {

// Keeps the message and replies with its payload from a thread.
bool replyFromThread(VSHandle* handle, VSMessage* message, void* data) {
  VSMessageRef(message);
  static_cast<std::vector<std::thread>*>(data)->emplace_back([handle, message] {
    EXPECT_TRUE(VSMessageReply(handle, message, VSMessageGetPayload(message), nullptr));
    VSMessageUnref(message);
  });
  return true;
}

bool drop(VSHandle*, VSMessage*, void*) {
  return true;
}

}  // namespace

TEST_F(VelaTest, RepliesComeFromAnyThread) {
  static const VSMethod kMethods[] = {{"later", replyFromThread, 0}, {}};
  std::vector<std::thread> threads;
  serve(kMethods, &threads);
  during([](BusClient& client) {
    std::vector<std::shared_ptr<BusClient::Pending>> calls;
    for (int i = 0; i < 200; ++i) {
      calls.push_back(client.start(kService, "/", kService, "later",
                                   g_variant_new("(s)", std::to_string(i).c_str())));
    }
    for (size_t i = 0; i < calls.size(); ++i) {
      EXPECT_EQ(client.wait(calls[i]).reply, std::to_string(i));
    }
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(VelaTest, OnlyTheFirstOfManyThreadsReplies) {
  static std::atomic<int> accepted;
  accepted = 0;
  const VSMethodFunction race = [](VSHandle* own, VSMessage* message, void*) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back(
          [=] { accepted += VSMessageReply(own, message, "{}", nullptr) ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    return true;
  };
  const VSMethod methods[] = {{"race", race, 0}, {}};
  serve(methods);
  during([](BusClient& client) { EXPECT_TRUE(callService(client, "race").ok); });
  EXPECT_EQ(accepted, 1);
  unregister();
}

TEST_F(VelaTest, SecondReplyFailsWithARecord) {
  static std::string second;
  const VSMethodFunction twice = [](VSHandle* own, VSMessage* message, void*) {
    EXPECT_FALSE(VSMessageReply(own, message, nullptr, nullptr)) << "no payload, no reply yet";
    EXPECT_TRUE(VSMessageReply(own, message, "first", nullptr));
    Error error;
    EXPECT_FALSE(VSMessageReply(own, message, "second", error.out()));
    second = error.message();
    return true;
  };
  const VSMethod methods[] = {{"twice", twice, 0}, {}};
  serve(methods);
  during([](BusClient& client) { EXPECT_EQ(callService(client, "twice").reply, "first"); });
  EXPECT_EQ(second, "the request is answered already");
  unregister();
}

TEST_F(VelaTest, DroppedRequestIsAnsweredWithNoReply) {
  static const VSMethod kMethods[] = {{"drop", drop, 0}, {}};
  serve(kMethods);
  during([](BusClient& client) {
    const Result result = callService(client, "drop");
    EXPECT_EQ(result.errorName, std::string(kPrefix) + "NoReply");
    EXPECT_EQ(result.errorMessage, "The service ended the request without a reply");
  });
}

TEST_F(VelaTest, DroppedInAThreadIsAnsweredToo) {
  static std::thread thread;
  const VSMethodFunction keep = [](VSHandle*, VSMessage* message, void*) {
    VSMessageRef(message);
    thread = std::thread([message] { VSMessageUnref(message); });
    return true;
  };
  const VSMethod methods[] = {{"keep", keep, 0}, {}};
  serve(methods);
  during([](BusClient& client) {
    EXPECT_EQ(callService(client, "keep").errorName, std::string(kPrefix) + "NoReply");
  });
  thread.join();
  unregister();
}

TEST_F(VelaTest, SilentDropLeavesTheCallerWaiting) {
  setenv("VELA_NOREPLY", "silent", 1);
  static const VSMethod kMethods[] = {{"drop", drop, 0}, {"echo", echo, 0}, {}};
  serve(kMethods);
  during([](BusClient& client) {
    const auto dropped = client.start(kService, "/", kService, "drop", g_variant_new("(s)", "{}"));
    EXPECT_TRUE(callService(client, "echo").ok);  // served after the dropped one
    client.sync();
    EXPECT_FALSE(client.isDone(dropped));
  });
}

TEST_F(VelaTest, CallerThatWantsNoReplyGetsNone) {
  static int handled;
  static bool accepted;
  handled = 0;
  const VSMethodFunction note = [](VSHandle* own, VSMessage* message, void*) {
    ++handled;
    accepted = VSMessageReply(own, message, "{}", nullptr);
    return true;
  };
  const VSMethod methods[] = {{"note", note, 0}, {"drop", drop, 0}, {"echo", echo, 0}, {}};
  serve(methods);
  // The bus lets unwanted replies pass, and the filter sees everything that arrives.
  during([](BusClient& client) {
    std::atomic<int> replies{0};
    const GDBusMessageFilterFunction count = [](GDBusConnection*, GDBusMessage* message,
                                                gboolean incoming, gpointer data) {
      if (incoming && g_dbus_message_get_reply_serial(message) != 0) {
        ++*static_cast<std::atomic<int>*>(data);
      }
      return message;
    };
    const guint filter = g_dbus_connection_add_filter(client.raw(), count, &replies, nullptr);
    client.post(kService, "/", kService, "note", "{}");
    client.post(kService, "/", kService, "drop", "{}");
    client.post(kService, "/", kService, "nothing", "{}");
    client.post(kService, "/", kService, "echo", std::string((1 << 20) + 1, 'x'));
    EXPECT_TRUE(callService(client, "echo").ok);
    g_dbus_connection_remove_filter(client.raw(), filter);
    EXPECT_EQ(replies, 1);
  });
  EXPECT_EQ(handled, 1);
  EXPECT_TRUE(accepted);
  unregister();
}

TEST_F(VelaTest, ReplyIsMadeValidUtf8) {
  const VSMethodFunction garble = [](VSHandle* own, VSMessage* message, void*) {
    return VSMessageReply(own, message, "a\xff\xc3z", nullptr);
  };
  const VSMethod methods[] = {{"garble", garble, 0}, {}};
  serve(methods);
  during([](BusClient& client) {
    EXPECT_EQ(callService(client, "garble").reply, "a\xEF\xBF\xBD\xEF\xBF\xBDz");
  });
  unregister();
}

TEST_F(VelaTest, ReplyOfSixteenMegabytesIsTheLargest) {
  static std::string refused;
  const VSMethodFunction large = [](VSHandle* own, VSMessage* message, void*) {
    const size_t size = std::stoul(VSMessageGetPayload(message));
    Error error;
    if (!VSMessageReply(own, message, std::string(size, 'x').c_str(), error.out())) {
      refused = error.name();
    }
    return true;
  };
  const VSMethod methods[] = {{"large", large, 0}, {}};
  serve(methods);
  during([](BusClient& client) {
    constexpr size_t kMost = 16 << 20;
    EXPECT_EQ(callService(client, "large", std::to_string(kMost)).reply.size(), kMost);
    EXPECT_EQ(callService(client, "large", std::to_string(kMost + 1)).errorName,
              std::string(kPrefix) + "LimitsExceeded");
  });
  EXPECT_EQ(refused, std::string(kPrefix) + "LimitsExceeded");
  unregister();
}

TEST_F(VelaTest, ReplyAfterUnregisteringFails) {
  static VSMessage* kept;
  const VSMethodFunction keep = [](VSHandle* own, VSMessage* message, void*) {
    kept = message;
    VSMessageRef(message);
    return VSUnregister(own, nullptr);  // below it on the stack: this request
  };
  const VSMethod methods[] = {{"keep", keep, 0}, {}};
  serve(methods);
  VSHandle* const gone = std::exchange(handle, nullptr);
  during([](BusClient& client) {
    EXPECT_EQ(callService(client, "keep").errorName, std::string(kPrefix) + "NoReply");
  });
  Error error;
  EXPECT_FALSE(VSMessageReply(gone, kept, "{}", error.out()));
  EXPECT_EQ(error.name(), std::string(kPrefix) + "Disconnected");
  VSMessageUnref(kept);
}
