// A system bus of a test's own with python-dbusmock's logind, which serves when it is constructed.
#ifndef TESTS_SUPPORT_FAKE_LOGIND_H
#define TESTS_SUPPORT_FAKE_LOGIND_H

#include <string>
#include <vector>

#include "tests/support/private_bus.h"

class FakeLogind {
 public:
  FakeLogind();

  // For DBUS_SYSTEM_BUS_ADDRESS.
  const std::string& address() const { return bus.address(); }
  // The inhibitor locks that are held, each as "what|who|why|mode", sorted.
  std::vector<std::string> locks();

 private:
  TempDir dir;
  tarn::test::PrivateBus bus;
  tarn::test::BusClient client;
};

#endif
