// The manager, /com/tarn/Fit1: it checks requests, hands descriptors to jobs, and ends when idle.
//
// It looks into no file and knows no path but its worker's.
// Thread: that of the default main context.
#ifndef FIT_SERVICE_FIT_SERVICE_H
#define FIT_SERVICE_FIT_SERVICE_H

#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <tarn-fit.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "fit/service/glib_ref.h"
#include "fit/service/job_queue.h"
#include "fit/service/worker_process.h"
#include "platform/power/sleep_lock.h"

class FitService {
 public:
  FitService(GDBusConnection* connection, const std::string& workerFolder, guint idleSeconds);
  ~FitService();
  FitService(const FitService&) = delete;
  FitService& operator=(const FitService&) = delete;

  // Takes the name and serves until idle. False when the name cannot be had; *error says why.
  bool run(std::string* error);

 private:
  // A file that is looked at: as a photo, and then, where it is none, as a movie.
  struct Inspection {
    GDBusMethodInvocation* invocation;
    Descriptor input;
    std::unique_ptr<WorkerProcess> worker;
    std::optional<FitFailure> asPhoto;
  };

  // What a call of FitImage or FitMovie brings.
  struct Call {
    GDBusMethodInvocation* invocation;
    GUnixFDList* list;
    GVariant* input;
    GVariant* output;
    guint64 maxBytes;
    GVariant* options;
  };

  static gboolean onFitImage(TarnFit1*, GDBusMethodInvocation* invocation, GUnixFDList* list,
                             GVariant* input, GVariant* output, guint64 maxBytes, GVariant* options,
                             gpointer self);
  static gboolean onFitMovie(TarnFit1*, GDBusMethodInvocation* invocation, GUnixFDList* list,
                             GVariant* input, GVariant* output, guint64 maxBytes, GVariant* options,
                             gpointer self);
  static gboolean onInspect(TarnFit1*, GDBusMethodInvocation* invocation, GUnixFDList* list,
                            GVariant* input, gpointer self);
  static gboolean onIdle(gpointer self);

  void takeRequest(MediaKind kind, const Call& call);
  void fit(GDBusMethodInvocation* invocation, FitJob::Files files, const FitOptions& options);
  void inspect(GDBusMethodInvocation* invocation, Descriptor input);
  void inspectAs(MediaKind kind, guint number);
  void endInspection(MediaKind kind, guint number, const WorkerReport& report);
  void scheduleInspection(guint number);
  std::string newPath(const std::string& caller, const std::string& token);
  bool isIdle() const { return queue.isEmpty() && inspections.empty(); }
  void noteChange();
  bool ownName(std::string* error);
  void leave();

  GDBusConnection* const connection;
  const std::string workerFolder;
  const guint idleSeconds;
  const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop;
  ObjectRef<TarnFit1> skeleton;
  std::optional<SleepLock> sleepLock;  // while there is a job
  JobQueue queue;
  std::map<guint, Inspection> inspections;
  guint numbers = 0;   // of paths and inspections
  guint requests = 0;  // ever
  guint idleSource = 0;
  bool isSucceeded = false;  // another process has the name
};

#endif
