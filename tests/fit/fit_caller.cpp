#include "tests/fit/fit_caller.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace {

constexpr std::chrono::seconds kDeadline(30);
constexpr int kTimeoutMs = 60000;

struct Reply {
  GUnixFDList* list = nullptr;
  GVariant* body = nullptr;
  GError* error = nullptr;
  bool isDone = false;
};

}  // namespace

FitCaller::FitCaller(const std::string& busAddress) : context(g_main_context_new()) {
  g_main_context_push_thread_default(context);
  connection = g_dbus_connection_new_for_address_sync(
      busAddress.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  if (connection == nullptr) throw std::runtime_error("no bus");
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  g_dbus_connection_signal_subscribe(connection, nullptr, nullptr, nullptr, nullptr, nullptr,
                                     G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
  g_main_context_pop_thread_default(context);
}

FitCaller::~FitCaller() {
  g_main_context_push_thread_default(context);
  g_dbus_connection_close_sync(connection, nullptr, nullptr);
  while (g_main_context_iteration(context, FALSE)) {
  }
  g_object_unref(connection);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}

void FitCaller::onSignal(GDBusConnection*, const char*, const char* path, const char*,
                         const char* name, GVariant* arguments, gpointer data) {
  auto* self = static_cast<FitCaller*>(data);
  if (std::string(name) == "PropertiesChanged") {
    GVariant* values = g_variant_get_child_value(arguments, 1);
    GVariantIter iterator;
    g_variant_iter_init(&iterator, values);
    const char* property = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_next(&iterator, "{&sv}", &property, &value) != FALSE) {
      g_autofree char* text = g_variant_print(value, FALSE);
      const bool isDouble = g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE) != FALSE;
      self->changes.push_back({path, property, text, isDouble ? g_variant_get_double(value) : 0});
      g_variant_unref(value);
    }
    g_variant_unref(values);
    return;
  }
  if (std::string(name) == "NameOwnerChanged") {
    const char* changed = nullptr;
    const char* before = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &changed, &before, nullptr);
    self->ownerLost = self->ownerLost || (g_str_equal(changed, kName) && *before != '\0');
    return;
  }
  if (std::string(name) != "Completed") return;
  JobEnd end;
  gboolean success = FALSE;
  GVariantIter* entries = nullptr;
  g_variant_get(arguments, "(ba{sv})", &success, &entries);
  end.success = success != FALSE;
  const char* key = nullptr;
  GVariant* value = nullptr;
  while (g_variant_iter_next(entries, "{&sv}", &key, &value) != FALSE) {
    const std::string type = g_variant_get_type_string(value);
    if (type == "t") end.numbers[key] = static_cast<double>(g_variant_get_uint64(value));
    if (type == "u") end.numbers[key] = g_variant_get_uint32(value);
    if (type == "d") end.numbers[key] = g_variant_get_double(value);
    if (type == "s") {
      (std::string(key) == "error" ? end.error : end.message) =
          g_variant_get_string(value, nullptr);
    }
    g_variant_unref(value);
  }
  g_variant_iter_free(entries);
  self->ends.emplace(path, end);
}

template <typename Condition>
bool FitCaller::runUntil(const Condition& condition) {
  const auto start = std::chrono::steady_clock::now();
  while (!condition()) {
    if (std::chrono::steady_clock::now() - start > kDeadline) return false;
    if (g_main_context_iteration(context, FALSE) == FALSE) g_usleep(1000);
  }
  return true;
}

CallOutcome FitCaller::send(GVariant* arguments, const std::string& path,
                            const std::string& interface, const std::string& method,
                            const std::vector<int>& descriptors, std::string* text) {
  Reply reply;
  g_main_context_push_thread_default(context);
  GUnixFDList* list = g_unix_fd_list_new();
  for (const int fd : descriptors) {
    if (fd >= 0) g_unix_fd_list_append(list, fd, nullptr);
  }
  g_dbus_connection_call_with_unix_fd_list(
      connection, kName, path.c_str(), interface.c_str(), method.c_str(), arguments, nullptr,
      G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, list, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        auto* got = static_cast<Reply*>(data);
        got->body = g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(source),
                                                                    nullptr, result, &got->error);
        got->isDone = true;
      },
      &reply);
  while (!reply.isDone) {
    g_main_context_iteration(context, TRUE);
  }
  g_object_unref(list);
  g_main_context_pop_thread_default(context);

  CallOutcome outcome;
  outcome.ok = reply.error == nullptr;
  if (outcome.ok) {
    g_autofree char* printed = g_variant_print(reply.body, FALSE);
    *text = printed;
    if (g_variant_is_of_type(reply.body, G_VARIANT_TYPE("(o)"))) {
      const char* job = nullptr;
      g_variant_get(reply.body, "(&o)", &job);
      outcome.path = job;
    }
    g_variant_unref(reply.body);
  } else {
    g_autofree char* remote = g_dbus_error_get_remote_error(reply.error);
    g_autofree char* local = g_dbus_error_encode_gerror(reply.error);
    const char* const name = remote != nullptr ? remote : local;
    g_dbus_error_strip_remote_error(reply.error);
    outcome.errorName = name;
    outcome.errorMessage = reply.error->message;
    g_error_free(reply.error);
  }
  return outcome;
}

CallOutcome FitCaller::fitDescriptors(int input, int output, uint64_t maxBytes,
                                      const std::string& options) {
  GVariant* parsed =
      g_variant_parse(G_VARIANT_TYPE_VARDICT, options.c_str(), nullptr, nullptr, nullptr);
  std::string ignored;
  return send(g_variant_new("(hht@a{sv})", 0, 1, maxBytes, parsed), kPath, kName, fitMethod,
              {input, output}, &ignored);
}

CallOutcome FitCaller::fit(const std::string& input, const std::string& output, uint64_t maxBytes,
                           const std::string& options) {
  const int in = open(input.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const CallOutcome outcome = fitDescriptors(in, out, maxBytes, options);
  close(in);
  close(out);
  return outcome;
}

std::string FitCaller::call(const std::string& path, const std::string& interface,
                            const std::string& method, GVariant* arguments, int descriptor) {
  std::string text;
  const CallOutcome outcome = send(arguments, path, interface, method, {descriptor}, &text);
  return outcome.ok ? text : outcome.errorName;
}

std::string FitCaller::pathOf(const std::string& token) const {
  std::string sender = g_dbus_connection_get_unique_name(connection) + 1;
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(kPath) + "/job/" + sender + "/" + token;
}

bool FitCaller::awaitEnd(const std::string& path, JobEnd* end) {
  if (!runUntil([&] { return ends.contains(path); })) return false;
  *end = ends.find(path)->second;
  return true;
}

bool FitCaller::awaitEndOrOwnerChange(const std::string& path, JobEnd* end) {
  if (!runUntil([&] { return ends.contains(path) || ownerLost; }) || !ends.contains(path)) {
    return false;
  }
  *end = ends.find(path)->second;
  return true;
}

bool FitCaller::awaitProperty(const std::string& path, const std::string& name,
                              const std::string& value) {
  return runUntil([&] {
    return std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
      return change.path == path && change.name == name && change.text == value;
    });
  });
}

std::vector<double> FitCaller::toldOf(const std::string& path, const std::string& name) const {
  std::vector<double> told;
  for (const Change& change : changes) {
    if (change.path == path && change.name == name) told.push_back(change.number);
  }
  return told;
}

void FitCaller::sync() {
  std::string ignored;
  g_main_context_push_thread_default(context);
  GVariant* reply = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", nullptr, nullptr,
      G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr, nullptr);
  g_main_context_pop_thread_default(context);
  if (reply != nullptr) g_variant_unref(reply);
  while (g_main_context_iteration(context, FALSE)) {
  }
}
