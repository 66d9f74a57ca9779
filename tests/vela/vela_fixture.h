// A service in the test's own process, on a private bus.
#ifndef TESTS_VELA_VELA_FIXTURE_H
#define TESTS_VELA_VELA_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/private_bus.h"
#include "vela/vela.h"

constexpr char kService[] = "com.example.vela";
constexpr char kPrefix[] = "org.freedesktop.DBus.Error.";

// An error record that cleans up.
class Error {
 public:
  Error() { VSErrorInit(&record); }
  ~Error() { VSErrorFree(&record); }
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;

  VSError* out() { return &record; }
  std::string name() const { return record.name != nullptr ? record.name : ""; }
  std::string message() const { return record.message != nullptr ? record.message : ""; }
  int code() const { return record.code; }

 private:
  VSError record;
};

class VelaTest : public testing::Test {
 protected:
  using Result = tarn::test::BusClient::Result;

  VelaTest() : VelaTest(tarn::test::PrivateBus::Options{}) {}
  explicit VelaTest(const tarn::test::PrivateBus::Options& options);
  ~VelaTest() override;

  // Takes the name; the handle is unregistered at the end unless the test did.
  void registerService(const char* name = kService);
  void publish(const VSMethod* methods, const char* category = "/", void* data = nullptr);
  void attach();
  // All three.
  void serve(const VSMethod* methods, void* data = nullptr);
  bool unregister(VSError* error = nullptr);

  // Runs the main loop while the client's work goes on in a thread of its own.
  void during(const std::function<void(tarn::test::BusClient&)>& work);
  // Runs the main loop until the condition holds; it is looked at after every dispatch.
  // Half a minute is a failure.
  static void runUntil(const std::function<bool()>& condition);

  static Result callService(tarn::test::BusClient& client, const std::string& method,
                            const std::string& payload = "{}", int timeoutMs = 30000) {
    return client.call(kService, "/", kService, method, payload, timeoutMs);
  }

  tarn::test::PrivateBus bus;
  GMainLoop* loop;
  VSHandle* handle = nullptr;
};

std::vector<std::string> linesOf(const std::string& path);

// Replies with the payload.
bool echo(VSHandle* handle, VSMessage* message, void* data);

#endif
