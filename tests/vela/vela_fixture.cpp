#include "tests/vela/vela_fixture.h"

#include <fstream>

#include "tests/support/wait_until.h"

VelaTest::VelaTest(const tarn::test::PrivateBus::Options& options)
    : bus(options), loop(g_main_loop_new(nullptr, FALSE)) {
  setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
  unsetenv("NOTIFY_SOCKET");
  unsetenv("VELA_NOREPLY");
}

VelaTest::~VelaTest() {
  if (handle != nullptr) {
    unregister();
  }
  g_main_loop_unref(loop);
}

void VelaTest::registerService(const char* name) {
  Error error;
  ASSERT_TRUE(VSRegisterPubPriv(name, &handle, false, error.out())) << error.message();
}

void VelaTest::publish(const VSMethod* methods, const char* category, void* data) {
  Error error;
  ASSERT_TRUE(VSRegisterCategory(handle, category, methods, nullptr, nullptr, error.out()))
      << error.message();
  ASSERT_TRUE(VSCategorySetData(handle, category, data, error.out())) << error.message();
}

void VelaTest::attach() {
  Error error;
  ASSERT_TRUE(VSGmainAttach(handle, loop, error.out())) << error.message();
}

void VelaTest::serve(const VSMethod* methods, void* data) {
  registerService();
  publish(methods, "/", data);
  attach();
}

bool VelaTest::unregister(VSError* error) {
  return VSUnregister(std::exchange(handle, nullptr), error);
}

void VelaTest::during(const std::function<void(tarn::test::BusClient&)>& work) {
  std::thread client([&] {
    tarn::test::BusClient connection(bus.address());
    work(connection);
    const GSourceFunc quit = [](gpointer data) -> gboolean {
      g_main_loop_quit(static_cast<GMainLoop*>(data));
      return G_SOURCE_REMOVE;
    };
    g_idle_add(quit, loop);
  });
  g_main_loop_run(loop);
  client.join();
}

void VelaTest::runUntil(const std::function<bool()>& condition) {
  EXPECT_TRUE(waitUntil(condition));
}

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

bool echo(VSHandle* handle, VSMessage* message, void*) {
  VSMessageReply(handle, message, VSMessageGetPayload(message), nullptr);
  return true;
}
