#include "fit/service/fit_job.h"

#include <sys/stat.h>
#include <tarn-fit.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

constexpr char kInterface[] = "com.tarn.Fit1.Job";
constexpr char kErrorPrefix[] = "com.tarn.Fit1.Error.";
// Of the clock on the wall, for one photo; one of 12 megapixels takes a quarter of a second.
constexpr guint kMostSeconds = 60;
// And for one movie, whose encoder is ended long before when it gets no further.
constexpr guint kMostSecondsOfMovie = 4 * 3600;
constexpr double kMillisecondsPerSecond = 1000;
constexpr guint kBetweenTicksMs = 100;
constexpr gint64 kBetweenTellingsUs = 50000;
constexpr double kTooEarlyToTell = 0.1;  // of the progress
constexpr double kWorthTelling = 0.005;
// Of what was left at a worker's last report, what it may have done since.
constexpr double kMostUnreported = 0.5;

void put(GVariantBuilder* builder, const char* name, GVariant* value) {
  g_variant_builder_add(builder, "{sv}", name, value);
}

guint64 numberOf(const ReportedNumbers& numbers, const char* name) {
  const auto found = numbers.find(name);
  return found == numbers.end() ? 0 : static_cast<guint64>(found->second);
}

guint32 shortNumberOf(const ReportedNumbers& numbers, const char* name) {
  return static_cast<guint32>(std::min<guint64>(numberOf(numbers, name), G_MAXUINT32));
}

}  // namespace

FitJob::FitJob(GDBusConnection* bus, std::string callersName, FitOptions fitOptions, Files jobFiles,
               std::function<void(FitJob*)> onEnded)
    : connection(bus),
      callerName(std::move(callersName)),
      options(std::move(fitOptions)),
      files(std::move(jobFiles)),
      ended(std::move(onEnded)) {}

FitJob::~FitJob() {
  if (timeSource != 0) g_source_remove(timeSource);
  if (tickSource != 0) g_source_remove(tickSource);
  if (registration != 0) g_dbus_connection_unregister_object(connection, registration);
}

bool FitJob::appear(const std::string& path, std::string* error) {
  static const GDBusInterfaceVTable kTable = {onCall, onGet, nullptr, {}};
  GError* failure = nullptr;
  registration = g_dbus_connection_register_object(
      connection, path.c_str(), tarn_fit1_job_interface_info(), &kTable, this, nullptr, &failure);
  const ErrorRef owned(failure);
  if (registration == 0) *error = failure->message;
  objectPath = path;
  return registration != 0;
}

void FitJob::onCall(GDBusConnection*, const char* sender, const char*, const char*, const char*,
                    GVariant*, GDBusMethodInvocation* invocation, gpointer data) {
  auto* self = static_cast<FitJob*>(data);
  if (self->callerName != sender) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, "org.freedesktop.DBus.Error.AccessDenied", "The job is another caller's");
    return;
  }
  g_dbus_method_invocation_return_value(invocation, nullptr);  // Cancel is all there is
  self->cancel();
}

GVariant* FitJob::onGet(GDBusConnection*, const char* sender, const char*, const char*,
                        const char* name, GError** error, gpointer data) {
  auto* self = static_cast<FitJob*>(data);
  if (self->callerName == sender) {
    self->progress = self->reckonedProgress();
    return self->property(name);
  }
  g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED, "The job is another caller's");
  return nullptr;
}

GVariant* FitJob::property(const std::string& name) const {
  if (name == "State") return g_variant_new_string(isRunning() ? "running" : "queued");
  if (name == "QueuePlace") return g_variant_new_uint32(queuePlace);
  if (name == "Progress") return g_variant_new_double(progress);
  return g_variant_new_double(secondsLeft());
}

double FitJob::secondsLeft() const {
  if (likelySeconds <= 0) return -1;
  const double share = std::max(progress, reported);
  return std::max(likelySeconds - elapsed(), elapsed() * (1 - share) / share);
}

void FitJob::tellChanged(std::initializer_list<const char*> names) {
  if (registration == 0 || over) return;
  GVariantBuilder changed;
  g_variant_builder_init(&changed, G_VARIANT_TYPE_VARDICT);
  for (const char* name : names) {
    put(&changed, name, property(name));
  }
  g_dbus_connection_emit_signal(
      connection, callerName.c_str(), objectPath.c_str(), "org.freedesktop.DBus.Properties",
      "PropertiesChanged", g_variant_new("(sa{sv}as)", kInterface, &changed, nullptr), nullptr);
}

void FitJob::setQueuePlace(guint place) {
  if (place == queuePlace) return;
  queuePlace = place;
  tellChanged({"QueuePlace"});
}

void FitJob::run(const std::string& workerFolder) {
  startUs = g_get_monotonic_time();
  queuePlace = 0;
  worker = std::make_unique<WorkerProcess>(
      WorkerProcess::Listener{[this](const WorkerReport& report) { takeReport(report); },
                              [this](const WorkerReport& report) { workerEnded(report); }});
  std::string error;
  if (!worker->start(workerFolder, options.request, files.input.get(), files.output.get(),
                     &error)) {
    fail({"WorkerFailed", "The worker cannot be started: " + error, 0});
    return;
  }
  timeSource =
      g_timeout_add_seconds(isMovie() ? kMostSecondsOfMovie : kMostSeconds, onTimeOver, this);
  tickSource = g_timeout_add(kBetweenTicksMs, onTick, this);
  tellChanged({"State", "QueuePlace"});
}

gboolean FitJob::onTick(gpointer data) {
  auto* self = static_cast<FitJob*>(data);
  self->advanceTo(self->reckonedProgress());
  return G_SOURCE_CONTINUE;
}

gboolean FitJob::onTimeOver(gpointer data) {
  auto* self = static_cast<FitJob*>(data);
  self->timeSource = 0;
  self->isTimeOver = true;
  self->worker->kill();
  return G_SOURCE_REMOVE;
}

void FitJob::cancel() {
  if (over) return;
  isCancelled = true;
  if (worker) {
    worker->kill();  // its end tells what came of it
  } else {
    fail({"Cancelled", "The job was cancelled", 0});
  }
}

void FitJob::callerLeft() {
  cancel();
}

void FitJob::takeReport(const WorkerReport& report) {
  if (report.progress <= reported) return;
  reported = report.progress;
  if (reported >= kTooEarlyToTell) likelySeconds = elapsed() / reported;
  advanceTo(std::max(progress, reported));
}

// A worker reports whenever a step is over, and works on meanwhile.
double FitJob::reckonedProgress() const {
  if (likelySeconds <= 0) return std::max(progress, reported);
  const double most = reported + kMostUnreported * (1 - reported);
  return std::max(progress, std::clamp(elapsed() / likelySeconds, reported, most));
}

void FitJob::advanceTo(double share) {
  const gint64 now = g_get_monotonic_time();
  if (share < progress + kWorthTelling || now - toldUs < kBetweenTellingsUs) return;
  toldUs = now;
  progress = share;
  tellChanged({"Progress", "SecondsLeft"});
}

// A worker's word is not taken for it.
bool FitJob::isAsTold(const ReportedNumbers& numbers) const {
  struct stat status {};
  return fstat(files.output.get(), &status) == 0 && status.st_size > 0 &&
         status.st_size <= options.maxBytes() &&
         static_cast<guint64>(status.st_size) == numberOf(numbers, "bytes");
}

void FitJob::workerEnded(const WorkerReport& report) {
  if (report.result && isAsTold(*report.result)) {
    succeed(*report.result);
    return;
  }
  if (report.writes && ftruncate(files.output.get(), 0) != 0) {
    g_warning("an output cannot be emptied");
  }
  if (isCancelled) {
    fail({"Cancelled", "The job was cancelled", 0});
  } else if (isTimeOver) {
    fail({"TimeOver", isMovie() ? "The movie takes too long" : "The photo takes too long", 0});
  } else {
    fail(report.failure.value_or(
        FitFailure{"WorkerFailed", "The worker ended without a result", 0}));
  }
}

void FitJob::succeed(const ReportedNumbers& numbers) {
  GVariantBuilder result;
  g_variant_builder_init(&result, G_VARIANT_TYPE_VARDICT);
  put(&result, "bytes", g_variant_new_uint64(numberOf(numbers, "bytes")));
  put(&result, "width", g_variant_new_uint32(shortNumberOf(numbers, "width")));
  put(&result, "height", g_variant_new_uint32(shortNumberOf(numbers, "height")));
  const auto told = [&](const char* name) { return static_cast<double>(numberOf(numbers, name)); };
  if (isMovie()) {
    put(&result, "seconds", g_variant_new_double(told("milliseconds") / kMillisecondsPerSecond));
  }
  if (numbers.contains("similarity")) {
    put(&result, "ssim", g_variant_new_double(told("similarity") / kSimilarityUnit));
  }
  put(&result, "encodes", g_variant_new_uint32(shortNumberOf(numbers, "encodes")));
  put(&result, "elapsed", g_variant_new_double(elapsed()));
  end(true, g_variant_builder_end(&result), {});
}

void FitJob::fail(const FitFailure& failure) {
  GVariantBuilder result;
  g_variant_builder_init(&result, G_VARIANT_TYPE_VARDICT);
  put(&result, "error", g_variant_new_string((kErrorPrefix + failure.name).c_str()));
  put(&result, "message", g_variant_new_string(failure.message.c_str()));
  if (failure.smallestBytes > 0) {
    put(&result, "smallestBytes",
        g_variant_new_uint64(static_cast<guint64>(failure.smallestBytes)));
  }
  end(false, g_variant_builder_end(&result), failure);
}

void FitJob::end(bool success, GVariant* result, const FitFailure& failure) {
  if (timeSource != 0) g_source_remove(std::exchange(timeSource, 0));
  if (tickSource != 0) g_source_remove(std::exchange(tickSource, 0));
  over = true;
  g_dbus_connection_emit_signal(connection, callerName.c_str(), objectPath.c_str(), kInterface,
                                "Completed", g_variant_new("(b@a{sv})", success, result), nullptr);
  if (GDBusMethodInvocation* invocation = std::exchange(waiting, nullptr)) {
    if (success) {
      g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", objectPath.c_str()));
    } else {
      g_dbus_method_invocation_return_dbus_error(invocation, (kErrorPrefix + failure.name).c_str(),
                                                 failure.message.c_str());
    }
  }
  ended(this);
}

double FitJob::elapsed() const {
  return startUs == 0 ? 0 : static_cast<double>(g_get_monotonic_time() - startUs) / G_USEC_PER_SEC;
}
