#include <fstream>

#include "tests/vela/vela_fixture.h"

using tarn::test::BusClient;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kIntrospectable[] = "org.freedesktop.DBus.Introspectable";
constexpr char kPeer[] = "org.freedesktop.DBus.Peer";
const VSMethod kMethods[] = {{"first", echo, 0}, {"second", echo, 0}, {}};

GDBusNodeInfo* introspect(BusClient& client, const char* path) {
  const BusClient::Result result =
      client.callRaw(kService, path, kIntrospectable, "Introspect", nullptr);
  EXPECT_TRUE(result.ok) << result.errorMessage;
  GDBusNodeInfo* info = g_dbus_node_info_new_for_xml(result.reply.c_str(), nullptr);
  EXPECT_NE(info, nullptr) << result.reply;
  return info;
}

std::string outputOf(const std::string& commandLine) {
  g_autofree char* out = nullptr;
  g_autofree char* err = nullptr;
  int status = -1;
  g_autoptr(GError) error = nullptr;
  EXPECT_TRUE(g_spawn_command_line_sync(commandLine.c_str(), &out, &err, &status, &error))
      << error->message;
  EXPECT_EQ(status, 0) << commandLine << "\n" << err;
  return out != nullptr ? out : "";
}

}  // namespace

TEST_F(VelaTest, IntrospectTellsMethodsAndChildren) {
  serve(kMethods);
  publish(kMethods, "/com/example/deep");
  publish(kMethods, "/com/other");
  during([](BusClient& client) {
    g_autoptr(GDBusNodeInfo) root = introspect(client, "/");
    GDBusInterfaceInfo* own = g_dbus_node_info_lookup_interface(root, kService);
    ASSERT_NE(own, nullptr);
    GDBusMethodInfo* second = g_dbus_interface_info_lookup_method(own, "second");
    ASSERT_NE(second, nullptr);
    EXPECT_STREQ(second->in_args[0]->signature, "s");
    EXPECT_STREQ(second->out_args[0]->signature, "s");
    EXPECT_NE(g_dbus_node_info_lookup_interface(root, kPeer), nullptr);
    EXPECT_NE(g_dbus_node_info_lookup_interface(root, kIntrospectable), nullptr);
    ASSERT_NE(root->nodes[0], nullptr);
    EXPECT_STREQ(root->nodes[0]->path, "com");
    EXPECT_EQ(root->nodes[1], nullptr);

    g_autoptr(GDBusNodeInfo) above = introspect(client, "/com");
    EXPECT_EQ(g_dbus_node_info_lookup_interface(above, kService), nullptr);
    EXPECT_STREQ(above->nodes[0]->path, "example");
    EXPECT_STREQ(above->nodes[1]->path, "other");

    g_autoptr(GDBusNodeInfo) leaf = introspect(client, "/com/example/deep");
    EXPECT_NE(g_dbus_node_info_lookup_interface(leaf, kService), nullptr);
    EXPECT_EQ(leaf->nodes[0], nullptr);

    EXPECT_EQ(client.callRaw(kService, "/com/ex", kIntrospectable, "Introspect", nullptr).errorName,
              std::string(kPrefix) + "UnknownObject");
    EXPECT_TRUE(client.callRaw(kService, "/", "", "Introspect", nullptr).ok);
  });
}

TEST_F(VelaTest, RootIsIntrospectableWithoutACategory) {
  registerService();
  attach();
  during([](BusClient& client) {
    g_autoptr(GDBusNodeInfo) root = introspect(client, "/");
    EXPECT_EQ(g_dbus_node_info_lookup_interface(root, kService), nullptr);
  });
}

TEST_F(VelaTest, PeerAnswers) {
  serve(kMethods);
  publish(kMethods, "/com/example");
  during([](BusClient& client) {
    std::string machineId;
    std::ifstream("/etc/machine-id") >> machineId;
    for (const char* path : {"/", "/com/example"}) {
      EXPECT_EQ(client.callRaw(kService, path, kPeer, "Ping", nullptr).reply, "()");
      const Result id = client.callRaw(kService, path, kPeer, "GetMachineId", nullptr);
      EXPECT_TRUE(machineId.empty() || id.reply == machineId) << id.reply;
    }
    EXPECT_EQ(client.callRaw(kService, "/", kPeer, "Pong", nullptr).errorName,
              std::string(kPrefix) + "UnknownMethod");
    EXPECT_EQ(client.callRaw(kService, "/", kPeer, "Ping", g_variant_new("(s)", "x")).errorName,
              std::string(kPrefix) + "InvalidArgs");
  });
}

TEST_F(VelaTest, GdbusToolUnderstands) {
  serve(kMethods);
  publish(kMethods, "/com/example");
  during([this](BusClient&) {
    const std::string target = " --address " + bus.address() + " --dest " + kService;
    EXPECT_THAT(outputOf("gdbus introspect" + target + " --object-path / --recurse"),
                testing::AllOf(HasSubstr("interface com.example.vela"), HasSubstr("first(in"),
                               HasSubstr("node /com/example"), Not(HasSubstr("Error"))));
    EXPECT_EQ(
        outputOf("gdbus call" + target + " --object-path / --method com.example.vela.first hi"),
        "('hi',)\n");
  });
}

TEST_F(VelaTest, BusctlToolUnderstands) {
  g_autofree char* busctl = g_find_program_in_path("busctl");
  if (busctl == nullptr) {
    GTEST_SKIP() << "no busctl on this machine";
  }
  serve(kMethods);
  publish(kMethods, "/com/example");
  during([this](BusClient&) {
    const std::string start = "busctl --address=" + bus.address();
    EXPECT_THAT(outputOf(start + " introspect com.example.vela /com/example"),
                HasSubstr(".second"));
    EXPECT_THAT(outputOf(start + " tree --list com.example.vela"), HasSubstr("/com/example"));
    EXPECT_EQ(outputOf(start + " call com.example.vela / com.example.vela first s hi"),
              "s \"hi\"\n");
  });
}
