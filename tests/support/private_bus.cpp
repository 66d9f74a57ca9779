#include "tests/support/private_bus.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tarn::test {

namespace {

constexpr char kHead[] =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <auth>EXTERNAL</auth>
)";

constexpr char kTail[] = R"(  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
    <allow send_type="method_return" send_requested_reply="false"/>
    <allow send_type="error" send_requested_reply="false"/>
    <allow receive_type="method_return" receive_requested_reply="false"/>
    <allow receive_type="error" receive_requested_reply="false"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="service_start_timeout">120000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_pending_service_starts">10000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">100000</limit>
</busconfig>
)";

std::string readLine(int fd) {
  std::string line;
  char byte = 0;
  while (read(fd, &byte, 1) == 1 && byte != '\n') {
    line += byte;
  }
  return line;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

std::vector<std::string> environmentWith(
    const std::vector<std::pair<std::string, std::string>>& additions) {
  char** variables = g_get_environ();
  for (const auto& [name, value] : additions) {
    variables = g_environ_setenv(variables, name.c_str(), value.c_str(), TRUE);
  }
  std::vector<std::string> result;
  for (char** variable = variables; *variable != nullptr; ++variable) {
    result.emplace_back(*variable);
  }
  g_strfreev(variables);
  return result;
}

}  // namespace

PrivateBus::PrivateBus(const Options& options) {
  writeFiles(options);
  start(options);
}

PrivateBus::~PrivateBus() {
  stop();
}

void PrivateBus::writeFiles(const Options& options) const {
  const std::string services = dir / "services";
  std::filesystem::create_directory(services);
  for (const Service& service : options.services) {
    std::ofstream(services + "/" + service.name + ".service")
        << "[D-BUS Service]\nName=" << service.name << "\nExec=" << service.exec << "\n";
  }
  std::ofstream config(dir / "bus.conf");
  config << kHead << "  <listen>unix:path=" << dir / "bus"
         << "</listen>\n"
         << "  <servicedir>" << services << "</servicedir>\n";
  for (const std::string& serviceDir : options.serviceDirs) {
    config << "  <servicedir>" << serviceDir << "</servicedir>\n";
  }
  config << kTail;
}

void PrivateBus::start(const Options& options) {
  std::array<int, 2> addressPipe{};
  if (pipe2(addressPipe.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  std::vector<std::string> arguments = {"dbus-daemon", "--config-file=" + dir / "bus.conf",
                                        "--nofork", "--nopidfile", "--print-address=3"};
  std::vector<std::string> variables = environmentWith(options.environment);
  const int logFd = open((dir / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const int childFd = 3;
  const GSpawnChildSetupFunc dieWithTest = [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); };
  const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD);
  g_autoptr(GError) error = nullptr;
  const bool started = g_spawn_async_with_pipes_and_fds(
      nullptr, pointers(arguments).data(), pointers(variables).data(), flags, dieWithTest, nullptr,
      -1, logFd, logFd, &addressPipe[1], &childFd, 1, &daemonPid, nullptr, nullptr, nullptr,
      &error);
  close(logFd);
  close(addressPipe[1]);
  busAddress = started ? readLine(addressPipe[0]) : "";
  close(addressPipe[0]);
  if (busAddress.empty()) {
    stop();
    throw std::runtime_error(started ? "dbus-daemon ended at once" : error->message);
  }
}

std::vector<std::string> PrivateBus::environment() const {
  return environmentWith({{"DBUS_SESSION_BUS_ADDRESS", busAddress}});
}

std::string PrivateBus::log() const {
  return readFile(dir / "log");
}

void PrivateBus::stop() {
  if (daemonPid > 0) {
    kill(daemonPid, SIGKILL);
    waitpid(daemonPid, nullptr, 0);
    daemonPid = -1;
  }
}

class BusClient::Pending {
 public:
  bool done = false;
  Result result;
};

namespace {

void readReply(GDBusMessage* message, BusClient::Result& result) {
  result.ok = true;
  GVariant* body = g_dbus_message_get_body(message);
  if (body == nullptr) {
    result.reply = "()";
  } else if (g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
    const char* text = nullptr;
    g_variant_get(body, "(&s)", &text);
    result.reply = text;
  } else {
    g_autofree char* text = g_variant_print(body, FALSE);
    result.reply = text;
  }
}

void readError(const GError* error, BusClient::Result& result) {
  g_autofree char* name = g_dbus_error_encode_gerror(error);
  g_autoptr(GError) bare = g_error_copy(error);
  g_dbus_error_strip_remote_error(bare);
  result.errorName = name;
  result.errorMessage = bare->message;
}

BusClient::Result resultOf(GDBusConnection* connection, GAsyncResult* outcome) {
  BusClient::Result result;
  g_autoptr(GError) error = nullptr;
  g_autoptr(GDBusMessage) message =
      g_dbus_connection_send_message_with_reply_finish(connection, outcome, &error);
  if (message != nullptr && !g_dbus_message_to_gerror(message, &error)) {
    readReply(message, result);
  } else {
    readError(error, result);
  }
  return result;
}

// Calls made while this lives complete on the context.
class ContextScope {
 public:
  explicit ContextScope(GMainContext* scopeContext) : context(scopeContext) {
    g_main_context_push_thread_default(context);
  }
  ~ContextScope() { g_main_context_pop_thread_default(context); }
  ContextScope(const ContextScope&) = delete;
  ContextScope& operator=(const ContextScope&) = delete;

 private:
  GMainContext* context;
};

}  // namespace

BusClient::BusClient(const std::string& address) : context(g_main_context_new()) {
  const ContextScope scope(context);
  g_autoptr(GError) error = nullptr;
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  connection =
      g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr, nullptr, &error);
  if (connection == nullptr) {
    g_main_context_unref(context);
    throw std::runtime_error(error->message);
  }
}

BusClient::~BusClient() {
  {
    const ContextScope scope(context);
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    while (g_main_context_iteration(context, FALSE)) {
    }
    g_object_unref(connection);
  }
  g_main_context_unref(context);
}

GDBusMessage* BusClient::newCall(const std::string& destination, const std::string& path,
                                 const std::string& interface, const std::string& method,
                                 GVariant* arguments) {
  GDBusMessage* message = g_dbus_message_new_method_call(
      destination.c_str(), path.c_str(), interface.empty() ? nullptr : interface.c_str(),
      method.c_str());
  if (arguments != nullptr) {
    g_dbus_message_set_body(message, arguments);
  }
  return message;
}

std::shared_ptr<BusClient::Pending> BusClient::start(const std::string& destination,
                                                     const std::string& path,
                                                     const std::string& interface,
                                                     const std::string& method, GVariant* arguments,
                                                     int timeoutMs) {
  const ContextScope scope(context);
  auto pending = std::make_shared<Pending>();
  g_autoptr(GDBusMessage) message = newCall(destination, path, interface, method, arguments);
  const GAsyncReadyCallback finish = [](GObject* source, GAsyncResult* outcome, gpointer data) {
    const std::unique_ptr<std::shared_ptr<Pending>> held(
        static_cast<std::shared_ptr<Pending>*>(data));
    (*held)->result = resultOf(G_DBUS_CONNECTION(source), outcome);
    (*held)->done = true;
  };
  g_dbus_connection_send_message_with_reply(
      connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, timeoutMs, nullptr, nullptr, finish,
      std::make_unique<std::shared_ptr<Pending>>(pending).release());
  g_dbus_connection_flush_sync(connection, nullptr, nullptr);
  return pending;
}

BusClient::Result BusClient::wait(const std::shared_ptr<Pending>& pending) {
  const ContextScope scope(context);
  while (!pending->done) {
    g_main_context_iteration(context, TRUE);
  }
  return pending->result;
}

bool BusClient::isDone(const std::shared_ptr<Pending>& pending) {
  const ContextScope scope(context);
  while (g_main_context_iteration(context, FALSE)) {
  }
  return pending->done;
}

BusClient::Result BusClient::callRaw(const std::string& destination, const std::string& path,
                                     const std::string& interface, const std::string& method,
                                     GVariant* arguments, int timeoutMs) {
  return wait(start(destination, path, interface, method, arguments, timeoutMs));
}

BusClient::Result BusClient::call(const std::string& destination, const std::string& path,
                                  const std::string& interface, const std::string& method,
                                  const std::string& payload, int timeoutMs) {
  return callRaw(destination, path, interface, method, g_variant_new("(s)", payload.c_str()),
                 timeoutMs);
}

void BusClient::post(const std::string& destination, const std::string& path,
                     const std::string& interface, const std::string& method,
                     const std::string& payload) {
  g_autoptr(GDBusMessage) message =
      newCall(destination, path, interface, method, g_variant_new("(s)", payload.c_str()));
  g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
  g_dbus_connection_send_message(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                 nullptr);
  g_dbus_connection_flush_sync(connection, nullptr, nullptr);
}

void BusClient::sync() {
  ownerOf("org.freedesktop.DBus");
}

std::string BusClient::ownerOf(const std::string& name) {
  return callRaw("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                 "GetNameOwner", g_variant_new("(s)", name.c_str()))
      .reply;
}

pid_t BusClient::processOf(const std::string& name) {
  const Result result =
      callRaw("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
              "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()));
  int pid = 0;
  sscanf(result.reply.c_str(), "(%d,)", &pid);
  return pid;
}

bool BusClient::waitForName(const std::string& name, bool present, int deadlineMs) {
  struct Watch {
    bool known = false;
    bool present = false;
    bool late = false;
    void set(bool now) {
      known = true;
      present = now;
    }
  } watch;
  const ContextScope scope(context);
  const GBusNameAppearedCallback appeared = [](GDBusConnection*, const char*, const char*,
                                               gpointer data) {
    static_cast<Watch*>(data)->set(true);
  };
  const GBusNameVanishedCallback vanished = [](GDBusConnection*, const char*, gpointer data) {
    static_cast<Watch*>(data)->set(false);
  };
  const guint id = g_bus_watch_name_on_connection(
      connection, name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, appeared, vanished, &watch, nullptr);
  GSource* deadline = g_timeout_source_new(static_cast<guint>(deadlineMs));
  const GSourceFunc expire = [](gpointer data) -> gboolean {
    static_cast<Watch*>(data)->late = true;
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(deadline, expire, &watch, nullptr);
  g_source_attach(deadline, context);
  while (!watch.late && !(watch.known && watch.present == present)) {
    g_main_context_iteration(context, TRUE);
  }
  g_source_destroy(deadline);
  g_source_unref(deadline);
  g_bus_unwatch_name(id);
  return watch.known && watch.present == present;
}

}  // namespace tarn::test
