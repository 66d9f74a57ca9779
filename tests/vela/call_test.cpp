#include <vector>

#include "tests/vela/vela_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const VSMethod kEcho[] = {{"echo", echo, 0}, {}};

// What callbacks got, in order.
struct Outcomes {
  std::vector<std::string> payloads;
  std::vector<std::string> errors;
  std::vector<std::string> messages;
  size_t count() const { return payloads.size(); }
};

bool collect(VSHandle* handle, VSMessage* message, void* data) {
  auto* outcomes = static_cast<Outcomes*>(data);
  outcomes->payloads.emplace_back(VSMessageGetPayload(message));
  const char* error = VSMessageGetErrorName(message);
  outcomes->errors.emplace_back(error != nullptr ? error : "");
  const char* text = VSMessageGetErrorMessage(message);
  EXPECT_EQ(text == nullptr, error == nullptr) << "an error has both";
  outcomes->messages.emplace_back(text != nullptr ? text : "");
  EXPECT_FALSE(VSMessageReply(handle, message, "{}", nullptr)) << "an outcome is no request";
  return true;
}

}  // namespace

TEST_F(VelaTest, ReplyGoesToTheCallbackOnTheLoop) {
  serve(kEcho);
  publish(kEcho, "/com/example");
  Outcomes outcomes;
  VSMessageToken first = 0;
  VSMessageToken second = 0;
  EXPECT_TRUE(
      VSCall(handle, "tarn://com.example.vela/echo", "one", collect, &outcomes, &first, nullptr));
  EXPECT_TRUE(VSCall(handle, "tarn://com.example.vela/com/example/echo", "two", collect, &outcomes,
                     &second, nullptr));
  EXPECT_EQ(outcomes.count(), 0U);
  runUntil([&] { return outcomes.count() == 2; });
  EXPECT_THAT(outcomes.payloads, ElementsAre("one", "two"));
  EXPECT_THAT(outcomes.errors, ElementsAre("", ""));
  EXPECT_NE(first, 0U);
  EXPECT_NE(second, 0U);
  EXPECT_NE(first, second);
}

TEST_F(VelaTest, AbsentPeerGivesAnErrorAndNoBlock) {
  serve(kEcho);
  Outcomes outcomes;
  const gint64 before = g_get_monotonic_time();
  EXPECT_TRUE(
      VSCall(handle, "tarn://com.example.absent/echo", "", collect, &outcomes, nullptr, nullptr));
  EXPECT_TRUE(
      VSCall(handle, "tarn://com.example.vela/nothing", "", collect, &outcomes, nullptr, nullptr));
  EXPECT_LT(g_get_monotonic_time() - before, G_USEC_PER_SEC);
  runUntil([&] { return outcomes.count() == 2; });
  EXPECT_THAT(outcomes.payloads, ElementsAre("", ""));
  EXPECT_THAT(outcomes.errors, ElementsAre(std::string(kPrefix) + "ServiceUnknown",
                                           std::string(kPrefix) + "UnknownMethod"));
  EXPECT_THAT(outcomes.messages[0], HasSubstr("com.example.absent was not provided"));
  EXPECT_THAT(outcomes.messages[1], HasSubstr("nothing"));
}

TEST_F(VelaTest, ClientHandleCallsWithoutAName) {
  serve(kEcho);
  VSHandle* client = nullptr;
  Error error;
  ASSERT_TRUE(VSRegisterPubPriv(nullptr, &client, false, error.out())) << error.message();
  ASSERT_TRUE(VSGmainAttach(client, loop, error.out())) << error.message();
  EXPECT_FALSE(VSRegisterCategory(client, "/", kEcho, nullptr, nullptr, nullptr));
  Outcomes outcomes;
  EXPECT_TRUE(
      VSCall(client, "tarn://com.example.vela/echo", "hi", collect, &outcomes, nullptr, nullptr));
  runUntil([&] { return outcomes.count() == 1; });
  EXPECT_THAT(outcomes.payloads, ElementsAre("hi"));
  const gint64 before = g_get_monotonic_time();
  EXPECT_TRUE(VSUnregister(client, nullptr));
  EXPECT_LT(g_get_monotonic_time() - before, 100 * 1000) << "nobody to linger for";
}

TEST_F(VelaTest, NullCallbackDropsTheReplyAndLeavesTheRecordAlone) {
  static std::string received;
  const VSMethodFunction note = [](VSHandle* own, VSMessage* message, void*) {
    received = VSMessageGetPayload(message);
    return VSMessageReply(own, message, "{}", nullptr);
  };
  const VSMethod methods[] = {{"activityStart", note, 0}, {}};
  registerService();
  publish(methods, "/com/tarn/power");
  VSError record;
  memset(&record, 0xA5, sizeof record);
  const VSError before = record;
  EXPECT_TRUE(VSCall(handle, "tarn://com.example.vela/com/tarn/power/activityStart",
                     "{ \"id\": \"transcode\", \"duration_ms\" : 7500 }", nullptr, nullptr, nullptr,
                     &record));
  EXPECT_EQ(memcmp(&before, &record, sizeof record), 0);
  attach();
  runUntil([] { return !received.empty(); });
  EXPECT_EQ(received, "{ \"id\": \"transcode\", \"duration_ms\" : 7500 }");
  unregister();
}

TEST_F(VelaTest, MalformedUriAndDeadBusFailAtOnce) {
  registerService();
  VSError record;
  memset(&record, 0xA5, sizeof record);
  EXPECT_FALSE(VSCall(handle, "nonsense", "", nullptr, nullptr, nullptr, &record));
  EXPECT_EQ(record.name, std::string(kPrefix) + "InvalidArgs");
  VSErrorFree(&record);
  EXPECT_FALSE(VSCall(handle, nullptr, "", nullptr, nullptr, nullptr, nullptr));
  const std::string huge((16 << 20) + 1, 'x');
  EXPECT_FALSE(VSCall(handle, "tarn://com.example.vela/echo", huge.c_str(), nullptr, nullptr,
                      nullptr, nullptr));
  bus.stop();
  Error error;
  // The death is noticed by the worker thread; until then a call is accepted.
  while (
      VSCall(handle, "tarn://com.example.vela/echo", "", nullptr, nullptr, nullptr, error.out())) {
    std::this_thread::yield();
  }
  EXPECT_EQ(error.name(), std::string(kPrefix) + "Disconnected");
  Error unregisterError;
  EXPECT_FALSE(unregister(unregisterError.out()));
  EXPECT_EQ(unregisterError.name(), std::string(kPrefix) + "Disconnected");
}

TEST_F(VelaTest, ForeignReplyThatIsNoTextIsAFailedCall) {
  VSHandle* client = nullptr;
  ASSERT_TRUE(VSRegisterPubPriv(nullptr, &client, false, nullptr));
  ASSERT_TRUE(VSGmainAttach(client, loop, nullptr));
  Outcomes outcomes;
  // The bus itself answers (b).
  EXPECT_TRUE(VSCall(client, "tarn://org.freedesktop.DBus/org/freedesktop/DBus/NameHasOwner",
                     "org.freedesktop.DBus", collect, &outcomes, nullptr, nullptr));
  runUntil([&] { return outcomes.count() == 1; });
  EXPECT_THAT(outcomes.errors, ElementsAre(std::string(kPrefix) + "InvalidSignature"));
  EXPECT_THAT(outcomes.messages, ElementsAre("The reply is not exactly one string"));
  VSUnregister(client, nullptr);
}

// As the bus allows, though few services do so.
TEST_F(VelaTest, AnErrorMaySayNothing) {
  serve(kEcho);
  tarn::test::BusClient peer(bus.address());
  constexpr char kPeer[] = "com.example.peer";
  const auto refuse = [](GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                         gpointer) -> GDBusMessage* {
    if (incoming == FALSE ||
        g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
      return message;
    }
    g_autoptr(GDBusMessage) error = g_dbus_message_new_method_error_literal(message, "a.b", "");
    const bool isBare = g_str_equal(g_dbus_message_get_member(message), "bare") != FALSE;
    g_dbus_message_set_body(error, isBare ? nullptr : g_variant_new("(is)", 7, "words"));
    g_dbus_connection_send_message(connection, error, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    g_object_unref(message);
    return nullptr;
  };
  g_dbus_connection_add_filter(peer.raw(), refuse, nullptr, nullptr);
  ASSERT_TRUE(peer.callRaw("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
                           g_variant_new("(su)", kPeer, 0))
                  .ok);
  Outcomes outcomes;
  for (const char* method : {"bare", "number"}) {
    EXPECT_TRUE(VSCall(handle, ("tarn://" + std::string(kPeer) + "/" + method).c_str(), "", collect,
                       &outcomes, nullptr, nullptr));
  }
  runUntil([&] { return outcomes.count() == 2; });
  EXPECT_THAT(outcomes.errors, ElementsAre("a.b", "a.b"));
  EXPECT_THAT(outcomes.messages, ElementsAre("", ""));
}

TEST_F(VelaTest, OutcomeReachesAHandlerAtTheDepthLimit) {
  struct State {
    int depth = 0;
    bool answered = false;
  };
  const VSMethodFunction nest = [](VSHandle* own, VSMessage* message, void* data) {
    auto* state = static_cast<State*>(data);
    if (++state->depth == 8) {
      const VSMethodFunction done = [](VSHandle*, VSMessage*, void* flag) {
        return *static_cast<bool*>(flag) = true;
      };
      VSCall(own, "tarn://com.example.absent/x", "", done, &state->answered, nullptr, nullptr);
    }
    while (!state->answered) {
      g_main_context_iteration(nullptr, TRUE);
    }
    return VSMessageReply(own, message, "{}", nullptr);
  };
  const VSMethod methods[] = {{"nest", nest, 0}, {}};
  State state;
  serve(methods, &state);
  during([](tarn::test::BusClient& client) {
    std::vector<std::shared_ptr<tarn::test::BusClient::Pending>> calls;
    for (int i = 0; i < 9; ++i) {
      calls.push_back(client.start(kService, "/", kService, "nest", g_variant_new("(s)", "{}")));
    }
    for (const auto& call : calls) {
      EXPECT_TRUE(client.wait(call).ok);
    }
  });
  unregister();
}

TEST_F(VelaTest, PendingCallFailsToItsCallbackWhenUnregistering) {
  static VSMessage* kept;
  const VSMethodFunction keep = [](VSHandle*, VSMessage* message, void*) {
    VSMessageRef(message);
    kept = message;
    return true;
  };
  const VSMethod methods[] = {{"keep", keep, 0}, {}};
  serve(methods);
  VSHandle* client = nullptr;
  ASSERT_TRUE(VSRegisterPubPriv(nullptr, &client, false, nullptr));
  ASSERT_TRUE(VSGmainAttach(client, loop, nullptr));
  Outcomes outcomes;
  kept = nullptr;
  ASSERT_TRUE(
      VSCall(client, "tarn://com.example.vela/keep", "", collect, &outcomes, nullptr, nullptr));
  runUntil([] { return kept != nullptr; });
  EXPECT_TRUE(VSUnregister(client, nullptr));
  EXPECT_THAT(outcomes.errors, ElementsAre(std::string(kPrefix) + "Disconnected"));
  EXPECT_THAT(outcomes.messages, ElementsAre("The connection to the bus is closed"));
  VSMessageUnref(kept);
  unregister();
}
