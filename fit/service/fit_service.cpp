#include "fit/service/fit_service.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

constexpr char kName[] = "com.tarn.Fit1";
constexpr char kPath[] = "/com/tarn/Fit1";
constexpr char kErrorPrefix[] = "com.tarn.Fit1.Error.";
constexpr size_t kMostInspections = 64;
// Messages that were on their way when the name was given back have come by then.
constexpr guint kLingerMs = 100;

constexpr guint kDoNotQueue = 4;  // a flag of the bus's RequestName
constexpr guint kPrimaryOwner = 1;
constexpr guint kAlreadyOwner = 4;

size_t processors() {
  return static_cast<size_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
}

void refuse(GDBusMethodInvocation* invocation, const Refusal& refusal) {
  g_dbus_method_invocation_return_dbus_error(invocation, (kErrorPrefix + refusal.name).c_str(),
                                             refusal.message.c_str());
}

// The descriptor that a handle of the message stands for: of a regular file, open that way.
bool takeDescriptor(GUnixFDList* list, GVariant* handle, int mode, Descriptor* descriptor,
                    Refusal* refusal) {
  const char* const what = mode == O_RDONLY ? "input" : "output";
  const int fd =
      list == nullptr ? -1 : g_unix_fd_list_get(list, g_variant_get_handle(handle), nullptr);
  *descriptor = Descriptor(fd);
  struct stat status {};
  const int flags = fd < 0 ? 0 : fcntl(fd, F_GETFL);
  const int access = flags & O_ACCMODE;
  const char* problem = nullptr;
  if (fd < 0 || flags < 0) {
    problem = " comes with no descriptor";
  } else if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    problem = " is no regular file";
  } else if ((flags & O_PATH) != 0 || (access != mode && access != O_RDWR)) {
    problem = mode == O_RDONLY ? " is not open for reading" : " is not open for writing";
  }
  if (problem == nullptr) return true;
  *refusal = {"BadDescriptor", std::string("The ") + what + problem};
  return false;
}

// What no photo's reader takes may be a movie.
bool mayBeAMovie(const FitFailure& failure) {
  return failure.name == "NotAPhoto" || failure.name == "NotSupported" ||
         failure.name == "TooLarge";
}

// The reason of a file that is neither: a photo of another kind is told by its name.
FitFailure neither(const FitFailure& photo, const FitFailure& movie) {
  if (photo.name != "NotAPhoto") return photo;
  return {photo.name, "The input is no photo. " + movie.message, 0};
}

class Facts {
 public:
  explicit Facts(const ReportedNumbers& reported) : numbers(reported) {
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  }
  void putText(const char* name, const std::string& text) {
    put(name, g_variant_new_string(text.c_str()));
  }
  void putLong(const char* name, const char* reported) {
    put(name, g_variant_new_uint64(static_cast<guint64>(number(reported))));
  }
  void putShort(const char* name) {
    put(name, g_variant_new_uint32(static_cast<guint32>(number(name))));
  }
  void putSeconds(const char* name, const char* reported) {
    put(name, g_variant_new_double(static_cast<double>(number(reported)) / 1000));
  }
  GVariant* end() { return g_variant_builder_end(&builder); }

 private:
  void put(const char* name, GVariant* value) {
    g_variant_builder_add(&builder, "{sv}", name, value);
  }
  int64_t number(const char* name) const {
    const auto found = numbers.find(name);
    return found == numbers.end() ? 0 : found->second;
  }

  const ReportedNumbers& numbers;
  GVariantBuilder builder;
};

// What can be told of a file that was looked at.
GVariant* factsOf(MediaKind kind, const WorkerReport& report) {
  Facts facts(*report.result);
  facts.putLong("bytes", "bytes");
  facts.putShort("width");
  facts.putShort("height");
  if (kind == MediaKind::Photo) {
    facts.putText("kind", "photo");
    facts.putShort("orientation");
    facts.putLong("metadataBytes", "metadata");
  } else {
    facts.putText("kind", "movie");
    facts.putSeconds("seconds", "milliseconds");
  }
  for (const auto& [name, word] : report.words) {
    facts.putText(name.c_str(), word);
  }
  return facts.end();
}

}  // namespace

FitService::FitService(GDBusConnection* bus, const std::string& folder, guint secondsToIdle)
    : connection(bus),
      workerFolder(folder),
      idleSeconds(secondsToIdle),
      loop(g_main_loop_new(nullptr, FALSE), g_main_loop_unref),
      skeleton(tarn_fit1_skeleton_new()),
      queue(bus, folder, processors(), [this] { noteChange(); }) {
  tarn_fit1_set_formats(skeleton.get(), kFormats);
  tarn_fit1_set_movie_formats(skeleton.get(), kMovieFormats);
  g_signal_connect(skeleton.get(), "handle-fit-image", G_CALLBACK(onFitImage), this);
  g_signal_connect(skeleton.get(), "handle-fit-movie", G_CALLBACK(onFitMovie), this);
  g_signal_connect(skeleton.get(), "handle-inspect", G_CALLBACK(onInspect), this);
}

FitService::~FitService() {
  if (idleSource != 0) g_source_remove(idleSource);
  g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(skeleton.get()));
}

gboolean FitService::onFitImage(TarnFit1*, GDBusMethodInvocation* invocation, GUnixFDList* list,
                                GVariant* input, GVariant* output, guint64 maxBytes,
                                GVariant* options, gpointer data) {
  static_cast<FitService*>(data)->takeRequest(MediaKind::Photo,
                                              {invocation, list, input, output, maxBytes, options});
  return TRUE;
}

gboolean FitService::onFitMovie(TarnFit1*, GDBusMethodInvocation* invocation, GUnixFDList* list,
                                GVariant* input, GVariant* output, guint64 maxBytes,
                                GVariant* options, gpointer data) {
  static_cast<FitService*>(data)->takeRequest(MediaKind::Movie,
                                              {invocation, list, input, output, maxBytes, options});
  return TRUE;
}

void FitService::takeRequest(MediaKind kind, const Call& call) {
  ++requests;
  FitJob::Files files;
  FitOptions parsed;
  parsed.request.kind = kind;
  Refusal refusal;
  if (parseFitOptions(call.maxBytes, call.options, &parsed, &refusal) &&
      takeDescriptor(call.list, call.input, O_RDONLY, &files.input, &refusal) &&
      takeDescriptor(call.list, call.output, O_WRONLY, &files.output, &refusal)) {
    fit(call.invocation, std::move(files), parsed);
  } else {
    refuse(call.invocation, refusal);
  }
}

// The caller's unique name, ":1.42", becomes "1_42".
std::string FitService::newPath(const std::string& caller, const std::string& token) {
  std::string sender = caller.substr(1);
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(kPath) + "/job/" + sender + "/" +
         (token.empty() ? "t" + std::to_string(++numbers) : token);
}

void FitService::fit(GDBusMethodInvocation* invocation, FitJob::Files files,
                     const FitOptions& options) {
  const std::string caller = g_dbus_method_invocation_get_sender(invocation);
  if (queue.isFull(caller)) {
    refuse(invocation, {"TooManyJobs", "There are too many jobs already"});
    return;
  }
  const std::string path = newPath(caller, options.token);
  auto job = std::make_unique<FitJob>(connection, caller, options, std::move(files),
                                      [this](FitJob*) { queue.scheduleRemoval(); });
  std::string error;
  if (!job->appear(path, &error)) {
    refuse(invocation, {"InvalidOption", "The option handle_token is that of another job"});
    return;
  }
  if (options.waits) {
    job->replyAtEnd(invocation);
  } else {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path.c_str()));
  }
  queue.add(std::move(job));
  queue.update();
}

gboolean FitService::onInspect(TarnFit1*, GDBusMethodInvocation* invocation, GUnixFDList* list,
                               GVariant* handle, gpointer data) {
  auto* self = static_cast<FitService*>(data);
  ++self->requests;
  Descriptor input;
  Refusal refusal;
  if (!takeDescriptor(list, handle, O_RDONLY, &input, &refusal)) {
    refuse(invocation, refusal);
  } else if (self->inspections.size() >= kMostInspections) {
    refuse(invocation, {"TooManyJobs", "Too many files are looked at already"});
  } else {
    self->inspect(invocation, std::move(input));
  }
  return TRUE;
}

void FitService::inspect(GDBusMethodInvocation* invocation, Descriptor input) {
  const guint number = ++numbers;
  Inspection& inspection = inspections[number];
  inspection.invocation = invocation;
  inspection.input = std::move(input);
  inspectAs(MediaKind::Photo, number);
  noteChange();
}

void FitService::inspectAs(MediaKind kind, guint number) {
  Inspection& inspection = inspections[number];
  inspection.worker = std::make_unique<WorkerProcess>(WorkerProcess::Listener{
      nullptr,
      [this, kind, number](const WorkerReport& report) { endInspection(kind, number, report); }});
  WorkerRequest request;
  request.task = WorkerTask::Inspect;
  request.kind = kind;
  std::string error;
  if (inspection.worker->start(workerFolder, request, inspection.input.get(), -1, &error)) return;
  refuse(inspection.invocation, {"WorkerFailed", "The worker cannot be started: " + error});
  inspections.erase(number);
}

void FitService::endInspection(MediaKind kind, guint number, const WorkerReport& report) {
  Inspection& inspection = inspections[number];
  GDBusMethodInvocation* const invocation = std::exchange(inspection.invocation, nullptr);
  FitFailure failure =
      report.failure.value_or(FitFailure{"WorkerFailed", "The worker ended without a result", 0});
  if (report.result) {
    g_dbus_method_invocation_return_value(invocation,
                                          g_variant_new("(@a{sv})", factsOf(kind, report)));
  } else if (kind == MediaKind::Photo && mayBeAMovie(failure)) {
    inspection.invocation = invocation;
    inspection.asPhoto = failure;
  } else {
    if (failure.name == "NotAMovie" && inspection.asPhoto) {
      failure = neither(*inspection.asPhoto, failure);
    }
    refuse(invocation, {failure.name, failure.message});
  }
  scheduleInspection(number);
}

// The worker is on the stack: what follows waits until the loop comes round.
void FitService::scheduleInspection(guint number) {
  g_idle_add_full(
      G_PRIORITY_DEFAULT_IDLE,
      [](gpointer data) -> gboolean {
        const auto* next = static_cast<std::pair<FitService*, guint>*>(data);
        auto* self = next->first;
        if (self->inspections[next->second].invocation != nullptr) {
          self->inspectAs(MediaKind::Movie, next->second);
        } else {
          self->inspections.erase(next->second);
        }
        self->noteChange();
        return G_SOURCE_REMOVE;
      },
      new std::pair(this, number),
      [](gpointer data) {
        const std::unique_ptr<std::pair<FitService*, guint>> owned(
            static_cast<std::pair<FitService*, guint>*>(data));
      });
}

void FitService::noteChange() {
  if (isIdle()) {
    sleepLock.reset();
  } else if (!sleepLock) {
    sleepLock.emplace("tarn-fit", "A photo or a movie is being made to fit");
  }
  if (idleSource != 0) g_source_remove(std::exchange(idleSource, 0));
  if (!isIdle()) return;
  if (isSucceeded) {
    g_main_loop_quit(loop.get());
  } else {
    idleSource = g_timeout_add_seconds(idleSeconds, onIdle, this);
  }
}

gboolean FitService::onIdle(gpointer data) {
  auto* self = static_cast<FitService*>(data);
  self->idleSource = 0;
  g_main_loop_quit(self->loop.get());
  return G_SOURCE_REMOVE;
}

bool FitService::ownName(std::string* error) {
  GError* failure = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", kName, kDoNotQueue), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &failure);
  if (reply == nullptr) {
    const ErrorRef owned(failure);
    *error = failure->message;
    return false;
  }
  guint outcome = 0;
  g_variant_get(reply, "(u)", &outcome);
  g_variant_unref(reply);
  *error = "the name is another's";
  return outcome == kPrimaryOwner || outcome == kAlreadyOwner;
}

// Gives the name back and sees to what came before: the next request starts the next process.
void FitService::leave() {
  GVariant* reply = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "ReleaseName", g_variant_new("(s)", kName), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr, nullptr);
  if (reply != nullptr) g_variant_unref(reply);
  const guint linger = g_timeout_add(
      kLingerMs,
      [](gpointer data) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop*>(data));
        return G_SOURCE_CONTINUE;
      },
      loop.get());
  g_main_loop_run(loop.get());
  g_source_remove(linger);
}

bool FitService::run(std::string* error) {
  GError* failure = nullptr;
  if (g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton.get()), connection, kPath,
                                       &failure) == FALSE) {
    const ErrorRef owned(failure);
    *error = failure->message;
    return false;
  }
  if (!ownName(error)) return false;
  noteChange();
  for (;;) {
    g_main_loop_run(loop.get());
    if (isSucceeded && isIdle()) break;
    const guint before = requests;
    leave();
    if (requests == before && isIdle()) break;
    // They came at the last moment: take the name again, or finish them beside who has it now.
    std::string ignored;
    isSucceeded = !ownName(&ignored);
    noteChange();
    if (isSucceeded && isIdle()) break;
  }
  g_dbus_connection_flush_sync(connection, nullptr, nullptr);
  return true;
}
