#include "tests/support/fake_logind.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

namespace {

constexpr char kName[] = "org.freedesktop.login1";

// The mock looks for the system bus, which is its own here.
std::string program(const TempDir& dir) {
  const std::string path =
      dir.write("logind",
                "#!/bin/sh\n"
                "export DBUS_SYSTEM_BUS_ADDRESS=\"$DBUS_SESSION_BUS_ADDRESS\"\n"
                "exec /usr/bin/python3 -m dbusmock --template logind\n");
  chmod(path.c_str(), 0755);
  return path;
}

}  // namespace

FakeLogind::FakeLogind()
    : bus({.services = {{kName, program(dir)}}, .serviceDirs = {}, .environment = {}}),
      client(bus.address()) {
  locks();
}

std::vector<std::string> FakeLogind::locks() {
  g_autoptr(GError) error = nullptr;
  g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
      client.raw(), kName, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
      "ListInhibitors", nullptr, G_VARIANT_TYPE("(a(ssssuu))"), G_DBUS_CALL_FLAGS_NONE,
      tarn::test::BusClient::kTimeoutMs, nullptr, &error);
  if (reply == nullptr) {
    ADD_FAILURE() << error->message;
    return {};
  }
  std::vector<std::string> held;
  g_autoptr(GVariantIter) each = nullptr;
  g_variant_get(reply, "(a(ssssuu))", &each);
  const char *what, *who, *why, *mode;
  while (g_variant_iter_next(each, "(&s&s&s&suu)", &what, &who, &why, &mode, nullptr, nullptr) !=
         0) {
    held.push_back(std::string(what) + "|" + who + "|" + why + "|" + mode);
  }
  std::sort(held.begin(), held.end());
  return held;
}
