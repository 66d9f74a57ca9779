#include "client/service/fit_call.h"

#include <gio/gunixfdlist.h>
#include <tarn-fit.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "client/service/service_call.h"

namespace {

constexpr char kName[] = "com.tarn.Fit1";
constexpr char kPath[] = "/com/tarn/Fit1";
constexpr char kJobInterface[] = "com.tarn.Fit1.Job";

constexpr guint kLookMs = 100;  // at the user's signals

// The service's own refusals and the bus's that there is none.
FitAnswer failed(GError* error) {
  FitAnswer answer;
  g_autofree char* name = g_dbus_error_get_remote_error(error);
  g_dbus_error_strip_remote_error(error);
  answer.errorText = error->message;
  if (name != nullptr && g_str_has_prefix(name, kName)) {
    answer.kind = FitAnswer::Refused;
  } else if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY)) {
    answer.errorText = "the service ended while it worked on the request";
  } else {
    answer.kind = FitAnswer::NoService;
    const bool isUnknown =
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != FALSE;
    answer.errorText =
        isUnknown ? notInstalledWords(kName) : "the service cannot be started: " + answer.errorText;
  }
  return answer;
}

// Of a job's error.
FitAnswer::Kind kindOf(const char* name) {
  if (g_strcmp0(name, "com.tarn.Fit1.Error.Cancelled") == 0) return FitAnswer::Cancelled;
  if (g_strcmp0(name, "com.tarn.Fit1.Error.LimitTooSmall") == 0) return FitAnswer::TooSmall;
  return FitAnswer::Refused;
}

// One job, from the call to its end.
class Call {
 public:
  Call(GDBusConnection* bus, const std::function<void(const Step&)>& onProgress,
       Interrupts* signals)
      : connection(bus),
        progress(onProgress),
        interrupts(signals),
        loop(g_main_loop_new(nullptr, FALSE)) {
    std::string sender = g_dbus_connection_get_unique_name(bus) + 1;
    std::replace(sender.begin(), sender.end(), '.', '_');
    token = "c" + std::to_string(g_random_int());
    path = std::string(kPath) + "/job/" + sender + "/" + token;
    // Before the call, so that nothing is missed.
    subscription =
        g_dbus_connection_signal_subscribe(bus, nullptr, nullptr, nullptr, path.c_str(), nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
    look = g_timeout_add(kLookMs, cancelWhenInterrupted, this);
  }
  ~Call() {
    if (look != 0) g_source_remove(look);
    if (watch != 0) g_bus_unwatch_name(watch);
    g_dbus_connection_signal_unsubscribe(connection, subscription);
    g_main_loop_unref(loop);
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  FitAnswer run(const FitWish& wish) {
    if (!begin(wish)) return answer;
    watch = g_bus_watch_name_on_connection(connection, kName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                           nullptr, onGone, this, nullptr);
    g_main_loop_run(loop);
    return answer;
  }

 private:
  bool begin(const FitWish& wish) {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GUnixFDList) list = g_unix_fd_list_new();
    const int input = g_unix_fd_list_append(list, wish.input, nullptr);
    const int output = g_unix_fd_list_append(list, wish.output, nullptr);
    g_autoptr(TarnFit1) service(tarn_fit1_proxy_new_sync(
        connection, G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES, kName, kPath, nullptr, &error));
    bool movie = false;
    if (service != nullptr && (wish.isPhoto || isKnown(service, list, input, &movie, &error))) {
      const auto call = movie ? tarn_fit1_call_fit_movie_sync : tarn_fit1_call_fit_image_sync;
      if (call(service, g_variant_new_handle(input), g_variant_new_handle(output), wish.maxBytes,
               options(wish, movie), list, nullptr, nullptr, nullptr, &error) != FALSE) {
        return true;
      }
    }
    answer = failed(error);
    return false;
  }

  // Whether the service knows the input for a photo or a movie, and for which.
  static bool isKnown(TarnFit1* service, GUnixFDList* list, int input, bool* movie,
                      GError** error) {
    g_autoptr(GVariant) facts = nullptr;
    if (tarn_fit1_call_inspect_sync(service, g_variant_new_handle(input), list, &facts, nullptr,
                                    nullptr, error) == FALSE) {
      return false;
    }
    const char* kind = "";
    g_variant_lookup(facts, "kind", "&s", &kind);
    *movie = g_str_equal(kind, "movie") != FALSE;
    return true;
  }

  GVariant* options(const FitWish& wish, bool movie) const {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    const auto add = [&](const char* name, GVariant* value) {
      g_variant_builder_add(&builder, "{sv}", name, value);
    };
    add("handle_token", g_variant_new_string(token.c_str()));
    if (wish.maxWidth != 0) add("maxWidth", g_variant_new_uint32(wish.maxWidth));
    if (wish.maxHeight != 0) add("maxHeight", g_variant_new_uint32(wish.maxHeight));
    const std::string& format = movie ? wish.movieFormat : wish.photoFormat;
    if (!format.empty()) add("format", g_variant_new_string(format.c_str()));
    if (!movie && !wish.keepMetadata.empty()) {
      add("keepMetadata", g_variant_new_string(wish.keepMetadata.c_str()));
    }
    return g_variant_builder_end(&builder);
  }

  static void onSignal(GDBusConnection*, const char*, const char*, const char* interface,
                       const char* name, GVariant* arguments, gpointer self) {
    const std::string signal = std::string(interface) + "." + name;
    if (signal == std::string(kJobInterface) + ".Completed") {
      static_cast<Call*>(self)->takeEnd(arguments);
    } else if (signal == "org.freedesktop.DBus.Properties.PropertiesChanged") {
      static_cast<Call*>(self)->takeChanges(arguments);
    }
  }

  void takeChanges(GVariant* arguments) const {
    GVariant* changed = g_variant_get_child_value(arguments, 1);
    double share = 0;
    if (g_variant_lookup(changed, "Progress", "d", &share) != FALSE && progress) {
      progress({.share = share});
    }
    g_variant_unref(changed);
  }

  void takeEnd(GVariant* arguments) {
    gboolean success = FALSE;
    GVariant* result = nullptr;
    g_variant_get(arguments, "(b@a{sv})", &success, &result);
    const char* message = nullptr;
    const char* name = nullptr;
    guint32 encodes = 0;
    g_variant_lookup(result, "bytes", "t", &answer.bytes);
    g_variant_lookup(result, "width", "u", &answer.width);
    g_variant_lookup(result, "height", "u", &answer.height);
    g_variant_lookup(result, "ssim", "d", &answer.similarity);
    g_variant_lookup(result, "seconds", "d", &answer.seconds);
    g_variant_lookup(result, "encodes", "u", &encodes);
    if (g_variant_lookup(result, "message", "&s", &message) != FALSE) answer.errorText = message;
    g_variant_lookup(result, "error", "&s", &name);
    answer.isUntouched = encodes == 0;
    answer.kind = success != FALSE ? FitAnswer::Made : kindOf(name);
    g_variant_unref(result);
    g_main_loop_quit(loop);
  }

  static void onGone(GDBusConnection*, const char*, gpointer data) {
    auto* self = static_cast<Call*>(data);
    self->answer.errorText = "the service ended while it worked on the request";
    g_main_loop_quit(self->loop);
  }

  static gboolean cancelWhenInterrupted(gpointer data) {
    auto* self = static_cast<Call*>(data);
    if (self->interrupts->received() == 0) return G_SOURCE_CONTINUE;
    self->look = 0;
    g_dbus_connection_call(self->connection, kName, self->path.c_str(), kJobInterface, "Cancel",
                           nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    return G_SOURCE_REMOVE;
  }

  GDBusConnection* const connection;
  const std::function<void(const Step&)>& progress;
  Interrupts* const interrupts;
  GMainLoop* const loop;
  std::string token;
  std::string path;
  guint subscription = 0;
  guint watch = 0;
  guint look = 0;
  FitAnswer answer;
};

}  // namespace

FitAnswer fitFile(const FitWish& wish, const std::function<void(const Step&)>& onProgress,
                  const std::function<void()>& onRetry, Interrupts* interrupts) {
  g_autoptr(GError) error = nullptr;
  g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (connection == nullptr) {
    FitAnswer answer;
    answer.kind = FitAnswer::NoService;
    answer.errorText = noBusWords(error->message);
    return answer;
  }
  FitAnswer answer = Call(connection, onProgress, interrupts).run(wish);
  if (answer.kind != FitAnswer::Died || interrupts->received() != 0) return answer;
  onRetry();
  return Call(connection, onProgress, interrupts).run(wish);
}
