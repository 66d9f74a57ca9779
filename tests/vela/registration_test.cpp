#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;
using testing::HasSubstr;

namespace {

const VSMethod kEcho[] = {{"echo", echo, 0}, {}};

bool replyData(VSHandle* handle, VSMessage* message, void* data) {
  return VSMessageReply(handle, message, static_cast<const char*>(data), nullptr);
}

}  // namespace

TEST_F(VelaTest, AnswersWithTheCategorysData) {
  static const VSMethod kMethods[] = {{"who", replyData, 0}, {}};
  static char root[] = "root";
  static char deep[] = "deep";
  registerService();
  publish(kMethods, "/", root);
  publish(kMethods, "/com/example", deep);
  attach();
  during([](BusClient& client) {
    EXPECT_EQ(client.call(kService, "/", kService, "who", "").reply, "root");
    EXPECT_EQ(client.call(kService, "/com/example", kService, "who", "").reply, "deep");
  });
}

TEST_F(VelaTest, RequestsBeforeTheMethodsExistAreKept) {
  registerService();
  BusClient client(bus.address());
  const auto pending = client.start(kService, "/", kService, "echo", g_variant_new("(s)", "early"));
  client.sync();
  EXPECT_FALSE(client.isDone(pending));
  publish(kEcho);
  attach();
  runUntil([&] { return client.isDone(pending); });
  EXPECT_EQ(client.wait(pending).reply, "early");
}

TEST_F(VelaTest, TakenNameFailsAndIsNamed) {
  registerService();
  VSHandle* second = handle;
  Error error;
  EXPECT_FALSE(VSRegisterPubPriv(kService, &second, false, error.out()));
  EXPECT_EQ(second, nullptr);
  EXPECT_NE(error.code(), 0);
  EXPECT_THAT(error.message(), HasSubstr(kService));
}

TEST_F(VelaTest, UninitialisedRecordIsFilledOnFailureOnly) {
  VSError record;
  memset(&record, 0xA5, sizeof record);
  const VSError before = record;
  ASSERT_TRUE(VSRegisterPubPriv(kService, &handle, false, &record));
  EXPECT_EQ(memcmp(&before, &record, sizeof record), 0);
  VSHandle* second = nullptr;
  ASSERT_FALSE(VSRegisterPubPriv(kService, &second, false, &record));
  char* printed = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&printed, &size);
  VSErrorPrint(&record, stream);
  VSErrorFree(&record);
  VSErrorPrint(&record, stream);
  fclose(stream);
  EXPECT_STREQ(printed,
               "org.freedesktop.DBus.Error.AddressInUse: the name com.example.vela is taken "
               "already\n");
  free(printed);
}

TEST_F(VelaTest, NoBusFails) {
  bus.stop();
  Error error;
  EXPECT_FALSE(VSRegisterPubPriv(kService, &handle, false, error.out()));
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(error.name(), std::string(kPrefix) + "NoServer");
  EXPECT_FALSE(VSRegisterPubPriv(kService, &handle, false, nullptr));
}

TEST_F(VelaTest, PublicBusIsTheSystemBus) {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
  Error error;
  EXPECT_FALSE(VSRegisterPubPriv(kService, &handle, false, nullptr));
  EXPECT_TRUE(VSRegisterPubPriv(kService, &handle, true, error.out())) << error.message();
}

TEST_F(VelaTest, BadNamesCategoriesAndTablesFail) {
  for (const char* name : {"", "nodot", ":1.5", "a..b"}) {
    EXPECT_FALSE(VSRegisterPubPriv(name, &handle, false, nullptr)) << name;
  }
  registerService();
  for (const char* category : {"", "x", "/x/", "//"}) {
    Error error;
    EXPECT_FALSE(VSRegisterCategory(handle, category, kEcho, nullptr, nullptr, error.out()));
    EXPECT_EQ(error.name(), std::string(kPrefix) + "InvalidArgs") << category;
  }
  static const VSMethod kBad[] = {{"not-a-member", echo, 0}, {}};
  EXPECT_FALSE(VSRegisterCategory(handle, "/", kBad, nullptr, nullptr, nullptr));
  EXPECT_FALSE(VSRegisterCategory(handle, "/", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(VSCategorySetData(handle, "/", nullptr, nullptr));
  publish(kEcho);
  EXPECT_FALSE(VSRegisterCategory(handle, "/", kEcho, nullptr, nullptr, nullptr));
  EXPECT_FALSE(VSGmainAttach(handle, nullptr, nullptr));
  attach();
  EXPECT_FALSE(VSGmainAttach(handle, loop, nullptr));
}

TEST_F(VelaTest, LoopOfAnotherContextIsRefused) {
  registerService();
  GMainContext* context = g_main_context_new();
  GMainLoop* other = g_main_loop_new(context, FALSE);
  Error error;
  EXPECT_FALSE(VSGmainAttach(handle, other, error.out()));
  EXPECT_EQ(error.name(), std::string(kPrefix) + "InvalidArgs");
  g_main_loop_unref(other);
  g_main_context_unref(context);
}

TEST_F(VelaTest, NullArgumentsFailWithoutHarm) {
  EXPECT_FALSE(VSRegisterPubPriv(kService, nullptr, false, nullptr));
  EXPECT_FALSE(VSRegisterCategory(nullptr, "/", kEcho, nullptr, nullptr, nullptr));
  EXPECT_FALSE(VSCategorySetData(nullptr, "/", nullptr, nullptr));
  EXPECT_FALSE(VSGmainAttach(nullptr, loop, nullptr));
  EXPECT_FALSE(VSUnregister(nullptr, nullptr));
  EXPECT_FALSE(VSCall(nullptr, "tarn://a.b/c", "", nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(VSMessageReply(nullptr, nullptr, "", nullptr));
  EXPECT_STREQ(VSMessageGetPayload(nullptr), "");
  EXPECT_EQ(VSMessageGetErrorName(nullptr), nullptr);
  EXPECT_EQ(VSMessageGetErrorMessage(nullptr), nullptr);
  VSMessageRef(nullptr);
  VSMessageUnref(nullptr);
  VSErrorFree(nullptr);
  VSErrorPrint(nullptr, stderr);
}
